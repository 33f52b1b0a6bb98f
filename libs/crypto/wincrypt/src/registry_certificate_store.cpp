#include "crypto/wincrypt/certificate_store.hpp"

#include "log_text.hpp"
#include "struct_type.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/log.hpp"
#include "orvik/plugin/path_registry.hpp"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <set>
#include <utility>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::exception::SystemException;

bool present(const boost::filesystem::path& file) {
    boost::system::error_code ignored;
    const auto type = boost::filesystem::status(file, ignored).type();
    return type != boost::filesystem::status_error && type != boost::filesystem::file_not_found;
}

bool systemVipNetCspExists() {
    static const auto systemVipNetCspPath = PathRegistry::vipNetResourceFile();
    return present(systemVipNetCspPath);
}

/// Whether any service with system stores is installed; what is found at the first use holds for the process.
bool systemStoresExist() {
    static const bool vipNet = present(PathRegistry::vipNetResourceFile());
    static const bool cryptoPro = present(PathRegistry::cryptoProResourceFile());
    return vipNet || cryptoPro;
}

/// System stores that ViPNet CSP does not have.
const std::set<std::string>& missingInVipNet() {
    static const std::set<std::string> names{"disallowed", "authroot", "trustedpeople", "trustedpublisher"};
    return names;
}

std::string systemStoreName(const std::string& name) {
    if (!systemVipNetCspExists() || missingInVipNet().count(boost::algorithm::to_lower_copy(name)) == 0) {
        return name;
    }
    log::info("wincrypt: store=" + name + " changed: store=" + crypto::constant::store_trust);
    return crypto::constant::store_trust;
}

boost::shared_ptr<Certificate> adopt(PCCERT_CONTEXT context) {
    return boost::make_shared<Certificate>(tools::fromPCCERT_CONTEXT(context));
}

PCCERT_CONTEXT contextOf(const crypto::ICertificate& certificate) {
    return tools::toPCCERT_CONTEXT(certificate.context());
}

} // namespace
} // namespace internal

RegistryCertificateStore::RegistryCertificateStore(boost::string_view name, ICertificateStore::Type type)
    : name_(type == ICertificateStore::system ? internal::systemStoreName(std::string(name)) : std::string(name)),
      type_(type) {}

RegistryCertificateStore::~RegistryCertificateStore() {
    close();
}

void RegistryCertificateStore::close() const noexcept {
    if (handle_ == nullptr) {
        return;
    }
    try {
        CertCloseStore(std::exchange(handle_, nullptr), 0);
    } catch (...) {
        log::warning("wincrypt: close store failed: " + exception::diagnostic());
    }
}

const std::string& RegistryCertificateStore::name() const {
    return name_;
}

crypto::ICertificateStore::Type RegistryCertificateStore::type() const {
    return type_;
}

void* RegistryCertificateStore::handle() const {
    if (handle_ == nullptr) {
        handle_ = type_ == ICertificateStore::system
                      ? CertOpenSystemStore(0, name_.c_str())
                      : CertOpenStore(structType(capi::CERT_STORE_PROV_MEMORY), 0, 0, 0, nullptr);
    }
    return handle_;
}

std::set<boost::shared_ptr<crypto::ICertificate>> RegistryCertificateStore::certificates() const {
    std::set<boost::shared_ptr<crypto::ICertificate>> result;
    if (type_ == ICertificateStore::system && !internal::systemStoresExist()) {
        return result;
    }
    auto* const store = handle();
    PCCERT_CONTEXT context = nullptr;
    while ((context = CertEnumCertificatesInStore(store, context)) != nullptr) {
        if (const auto* duplicate = CertDuplicateCertificateContext(context)) {
            result.insert(internal::adopt(duplicate));
        }
    }
    return result;
}

boost::shared_ptr<crypto::ICertificate>
RegistryCertificateStore::findCertificate(const crypto::ICertificate& certificate) const {
    const auto* context = internal::contextOf(certificate);
    if (context == nullptr) {
        return {};
    }
    const auto* found = CertGetSubjectCertificateFromStore(handle(), capi::X509_AND_PKCS_7, context->pCertInfo);
    return found == nullptr ? boost::shared_ptr<crypto::ICertificate>() : internal::adopt(found);
}

bool RegistryCertificateStore::addCertificate(const crypto::ICertificate& certificate) {
    if (CertAddCertificateContextToStore(handle(), internal::contextOf(certificate),
                                         capi::CERT_STORE_ADD_REPLACE_EXISTING, nullptr) == 0) {
        raise(internal::SystemException(), {"registry_certificate_store", "addCertificate"});
    }
    return true;
}

bool RegistryCertificateStore::deleteCertificate(const crypto::ICertificate& certificate) {
    const auto find = [&] {
        return CertFindCertificateInStore(handle(), capi::X509_AND_PKCS_7, 0, capi::CERT_FIND_EXISTING,
                                          internal::contextOf(certificate), nullptr);
    };
    const exception::Location here{"registry_certificate_store", "deleteCertificate"};
    const auto* found = find();
    if (found == nullptr) {
        return false;
    }
    if (CertDeleteCertificateFromStore(found) == 0) { // gives `found` back, whatever it returns
        raise(internal::SystemException(), here);
    }
    if (const auto* kept = find()) {
        const internal::SystemException failure;
        CertFreeCertificateContext(kept);
        raise(failure, here);
    }
    return true;
}

ProviderCertificateStore::ProviderCertificateStore(const boost::shared_ptr<crypto::IProvider>& source)
    : RegistryCertificateStore(plugin::converter::utf16_to_utf8(source->name()), ICertificateStore::provider),
      provider_(source) {}

ProviderCertificateStore::~ProviderCertificateStore() = default;

void* ProviderCertificateStore::handle() const {
    if (isOpen()) {
        return RegistryCertificateStore::handle();
    }
    auto* const store = RegistryCertificateStore::handle();
    if (store != nullptr) {
        // Opening fills the store, which the interface counts as reading it.
        auto& self = const_cast<ProviderCertificateStore&>(*this);
        try {
            for (const auto& certificate : provider_->certificates()) {
                self.addCertificate(*certificate);
            }
        } catch (...) {
            close(); // a part of the certificates must not pass for all of them
            throw;
        }
    }
    return store;
}

bool ProviderCertificateStore::addCertificate(const crypto::ICertificate& certificate) {
    const bool added = RegistryCertificateStore::addCertificate(certificate);
    log::info("wincrypt: skipped installing and linking certificate to provider " + quotedName(provider_->name()));
    return added;
}

bool ProviderCertificateStore::deleteCertificate(const crypto::ICertificate& certificate) {
    const bool deleted = RegistryCertificateStore::deleteCertificate(certificate);
    log::info("wincrypt: skipped uninstalling and unlinking certificate from provider " +
              quotedName(provider_->name()));
    return deleted;
}

} // namespace orvik::plugin::wincrypt
