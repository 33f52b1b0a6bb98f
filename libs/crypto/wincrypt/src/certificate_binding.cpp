#include "crypto/wincrypt/certificate.hpp"

#include "decoded_structure.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/private_key.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/hex.hpp"
#include "orvik/plugin/log.hpp"
#include "orvik/plugin/session.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <algorithm>
#include <exception>
#include <set>
#include <string>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::exception::CryptoException;
using crypto::exception::SystemException;
using exception::ApplicationException;

bool contains(const std::vector<std::string>& oids, const std::string& oid) {
    return std::find(oids.begin(), oids.end(), oid) != oids.end();
}

bool hasAlgorithm(const crypto::IProvider& provider, const std::string& oid) {
    return contains(crypto::tools::algorithms(provider), oid) && provider.hasAlgorithm(oid);
}

bool installed(const Provider& provider) {
    const auto providers = provider.providers(Session::instance());
    return std::any_of(providers.begin(), providers.end(),
                       [&](const auto& other) { return other->type() == provider.type(); });
}

/// Search by the link that the certificate's properties carry.
boost::shared_ptr<crypto::IProvider> provider(PCCERT_CONTEXT context, const std::string& serialNumber) {
    try {
        const auto property = keyProvProperty(context);
        const auto* link = structure<CRYPT_KEY_PROV_INFO>(property);
        if (link == nullptr || link->pwszProvName == nullptr) {
            return {};
        }
        auto found = boost::make_shared<Provider>(static_cast<unsigned long>(link->dwProvType), link->pwszProvName);
        if (!installed(*found)) {
            return {};
        }
        if (context->pCertInfo == nullptr) {
            return found;
        }
        const std::string oid = context->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId;
        if (hasAlgorithm(*found, oid)) {
            return found;
        }
        log::warning("wincrypt: search provider metadata in certificate (" + hex::encode(serialNumber) +
                     ") failed, reason: provider (" + plugin::converter::utf16_to_utf8(found->name()) + "," +
                     std::to_string(found->type()) + ") found but not supports public key algorithm: " + oid);
    } catch (const std::exception& e) {
        log::warning(std::string("wincrypt: search provider metadata in certificate failed, reason: ") + e.what());
    }
    return {};
}

/// Whether one of the certificate's sign tools is the provider's.
bool namedIn(const crypto::tools::ProviderInfo& info, const boost::optional<std::wstring>& subjectTool,
             const boost::optional<std::wstring>& issuerTool) {
    const auto pattern = plugin::converter::utf8_to_utf16(info.signToolPattern);
    const auto names = [&pattern](const boost::optional<std::wstring>& tool) {
        return tool && tool->find(pattern) != std::wstring::npos;
    };
    return !pattern.empty() && (names(subjectTool) || names(issuerTool));
}

/// Search by the certificate's own statement of the tool that made its key.
boost::shared_ptr<crypto::IProvider> provider(const crypto::ICertificate& certificate,
                                              const crypto::IPublicKey& publicKey) {
    try {
        const auto& oid = publicKey.algObjId();
        const auto subjectTool = certificate.subjectSignTool();
        const auto issuerTool = certificate.issuerSignTool();
        for (const auto& info : crypto::tools::providerInfos()) {
            if (!namedIn(info, subjectTool, issuerTool) || !contains(info.algorithms, oid)) {
                continue;
            }
            auto candidate = boost::make_shared<Provider>(info.type, plugin::converter::utf8_to_utf16(info.name));
            if (installed(*candidate)) {
                return candidate;
            }
        }
    } catch (const std::exception& e) {
        log::warning("wincrypt: search provider metadata in certificate " + hex::encode(certificate.serialNumber()) +
                     " failed, reason: " + e.what());
    }
    return {};
}

/// Codes that tell the caller what the person did; they pass unchanged.
const std::set<int>& rethrowCodes() {
    static const std::set<int> codes{static_cast<int>(ApplicationException::Code::cancelled),
                                     static_cast<int>(CryptoException::Code::authorizationRefused)};
    return codes;
}

} // namespace
} // namespace internal

boost::optional<std::wstring> Certificate::container() const {
    if (context_ == nullptr) {
        return boost::none;
    }
    const auto property = keyProvProperty(native());
    const auto* link = structure<CRYPT_KEY_PROV_INFO>(property);
    if (link == nullptr || link->pwszContainerName == nullptr) {
        return boost::none;
    }
    return std::wstring(link->pwszContainerName);
}

boost::shared_ptr<crypto::IProvider> Certificate::provider(bool search) const {
    if (provider_) {
        return *provider_;
    }
    if (context_ == nullptr) {
        return {};
    }
    if (auto found = internal::provider(native(), serialNumber())) {
        provider_ = found;
        return found;
    }
    if (!search) {
        return {};
    }
    const auto key = publicKey();
    provider_ = key ? internal::provider(*this, *key) : boost::shared_ptr<crypto::IProvider>();
    return *provider_;
}

boost::shared_ptr<crypto::IPrivateKey> Certificate::privateKey() const {
    using internal::CryptoException;
    if (privateKey_) {
        return privateKey_;
    }
    const exception::Location here{"certificate", "privateKey"};
    const auto* duplicate = CertDuplicateCertificateContext(native());
    if (duplicate == nullptr) {
        raise(internal::SystemException(), here);
    }
    try {
        const auto certificate = boost::make_shared<Certificate>(tools::fromPCCERT_CONTEXT(duplicate));
        privateKey_ = boost::make_shared<PrivateKey>(certificate);
        return privateKey_;
    } catch (const exception::Exception& e) {
        if (internal::rethrowCodes().count(e.code().value()) != 0) {
            throw;
        }
        log::warning(std::string("wincrypt: privateKey: ") + e.what());
        raise(CryptoException(CryptoException::Code::privateKeyUnavailable), here);
    }
}

bool Certificate::link(const crypto::IProvider& provider, boost::wstring_view container) const {
    CRYPT_KEY_PROV_INFO info{};
    // The structure is written for both directions; the service only reads it here.
    info.pwszContainerName = const_cast<wchar_t*>(container.data());
    info.pwszProvName = const_cast<wchar_t*>(provider.name().c_str());
    info.dwProvType = provider.type();
    info.dwKeySpec = capi::AT_KEYEXCHANGE;
    return CertSetCertificateContextProperty(native(), capi::CERT_KEY_PROV_INFO_PROP_ID, 0, &info) != 0;
}

} // namespace orvik::plugin::wincrypt
