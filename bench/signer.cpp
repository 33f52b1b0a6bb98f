#include "signer.hpp"

#include "core/ossl.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/engine.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/csr_creator.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "keys/container.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/i_auth_handle.hpp"
#include "orvik/plugin/log.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <cstdlib>
#include <stdexcept>

namespace bench {

namespace {

namespace csp = klunortredi::csp;
namespace ossl = klunortredi::csp::ossl;
using orvik::plugin::crypto::IProvider;

constexpr const char* pin = "12345678";
constexpr const wchar_t* container = L"bench";
constexpr long oneDay = 24L * 60 * 60;

/// A certificate for the container's key, signed by that very key: all that signing asks of one is its key usage.
std::string selfSigned(EVP_PKEY* key) {
    const ossl::X509Ptr certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 4711);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), oneDay);
    auto* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>("bench"), -1, -1, 0);
    X509_set_issuer_name(certificate.get(), name);
    X509_set_pubkey(certificate.get(), key);
    X509_EXTENSION* usage = X509V3_EXT_conf_nid(nullptr, nullptr, NID_key_usage, "digitalSignature");
    X509_add_ext(certificate.get(), usage, -1);
    X509_EXTENSION_free(usage);
    const EVP_MD* digest = csp::digestMethod(*csp::findDigest(std::string_view("1.2.643.7.1.1.2.2")));
    if (X509_sign(certificate.get(), key, digest) <= 0) {
        throw std::runtime_error("cannot sign the certificate");
    }
    unsigned char* der = nullptr;
    const int size = i2d_X509(certificate.get(), &der);
    std::string result(reinterpret_cast<char*>(der), static_cast<std::size_t>(size));
    OPENSSL_free(der);
    return result;
}

std::filesystem::path newHome() {
    std::string pattern = (std::filesystem::temp_directory_path() / "klunortredi-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("cannot make a data directory");
    }
    ::setenv("KLUNORTREDI_HOME", pattern.c_str(), 1);
    ::setenv("KLUNORTREDI_VIPNET", "", 1);
    ::setenv("KLUNORTREDI_CRYPTOPRO", SERVICE_LIBRARY, 1);
    return pattern;
}

} // namespace

Signer::Signer() : home_(newHome()) {
    orvik::plugin::log::setSink([](orvik::plugin::log::Severity, std::string_view) {});
    orvik::plugin::log::setLevel(orvik::plugin::log::Severity::error);
    orvik::plugin::crypto::AuthProvider::setDialog(
        [](const orvik::plugin::crypto::IAuthHandle&, unsigned attempt) -> boost::optional<std::string> {
            return attempt == 0 ? boost::optional<std::string>(pin) : boost::none;
        });
    const auto provider = orvik::plugin::wincrypt::Provider::provider(L"Klunortredi GOST R 34.10-2012 (256)");
    auto params = boost::make_shared<orvik::plugin::crypto::CsrCreatorParams>();
    params->provider = provider;
    params->container = container;
    params->subject = "2.5.4.3=bench";
    params->paramSet = "1.2.643.2.2.35.1";
    orvik::plugin::wincrypt::CsrCreator().create(params, pin);

    auto stored = csp::Container::open({"bench", static_cast<DWORD>(IProvider::gost2012_256)});
    rawKey_ = stored.unlock(pin).at(1);
    certificate_ = boost::make_shared<orvik::plugin::wincrypt::Certificate>(
        selfSigned(rawKey_.get()), orvik::plugin::crypto::ICertificate::Format::der);
    certificate_->install(*provider, container, pin);
}

Signer::~Signer() {
    std::error_code ignored;
    std::filesystem::remove_all(home_, ignored);
}

const Signer& signer() {
    static const Signer instance;
    return instance;
}

} // namespace bench
