#include "crypto/wincrypt/certificate.hpp"

#include "certificate_format.hpp"
#include "lenient.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate_verifier.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/public_key.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "orvik/plugin/log.hpp"
#include "orvik/plugin/ssl/certificate.hpp"
#include "orvik/plugin/tools.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <cstring>
#include <stdexcept>
#include <string>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::exception::CryptoException;
using crypto::exception::SystemException;
using exception::ApplicationException;
using exception::Location;

constexpr Location constructor{"certificate", "Certificate"};

/// Sizes that are taken over from the service.
bool acceptable(std::size_t size) {
    return plugin::tools::check_bounds(size, 2, 102400);
}

std::string octets(const CRYPTOAPI_BLOB& blob) {
    if (!tools::check_blob(&blob) || !acceptable(blob.cbData)) {
        return {};
    }
    return {reinterpret_cast<const char*>(blob.pbData), blob.cbData};
}

std::string decoded(boost::string_view data, crypto::ICertificate::Format format) {
    if (data.empty()) {
        raise(ApplicationException(ApplicationException::Code::emptyInput), constructor);
    }
    auto der = format == crypto::ICertificate::Format::pem
                   ? base64::decode(crypto::tools::normalizePEM(std::string(data)))
                   : std::string(data);
    if (der.empty()) {
        raise(CryptoException(CryptoException::Code::badCertificateData), constructor);
    }
    return der;
}

} // namespace
} // namespace internal

Certificate::Certificate(void* context) : context_(context) {}

Certificate::Certificate(boost::string_view data, const ICertificate::Format& format) : context_(nullptr) {
    const auto der = internal::decoded(data, format);
    context_ = tools::fromPCCERT_CONTEXT(CertCreateCertificateContext(
        capi::X509_AND_PKCS_7, reinterpret_cast<const BYTE*>(der.data()), static_cast<DWORD>(der.size())));
    if (context_ == nullptr) {
        raise(internal::SystemException(), internal::constructor);
    }
}

Certificate::Certificate(boost::string_view data) : Certificate(data, certificateFormat(data)) {}

Certificate::~Certificate() {
    if (context_ == nullptr) {
        return;
    }
    try {
        CertFreeCertificateContext(native());
    } catch (...) {
        log::warning("wincrypt: free certificate failed: " + exception::diagnostic());
    }
}

PCCERT_CONTEXT Certificate::native() const {
    return tools::toPCCERT_CONTEXT(context_);
}

CERT_INFO* Certificate::info() const {
    return context_ == nullptr ? nullptr : native()->pCertInfo;
}

const Certificate* Certificate::asWincrypt() const {
    return this;
}

void* Certificate::context() const {
    return context_;
}

boost::shared_ptr<crypto::IPublicKey> Certificate::publicKey() const {
    if (!publicKey_ && info() != nullptr) {
        publicKey_ = boost::make_shared<PublicKey>(&info()->SubjectPublicKeyInfo);
    }
    return publicKey_;
}

std::uint32_t Certificate::version() const {
    return info() == nullptr ? 0 : info()->dwVersion;
}

std::string Certificate::raw() const {
    if (context_ == nullptr) {
        return {};
    }
    return internal::octets({native()->cbCertEncoded, native()->pbCertEncoded});
}

std::string Certificate::serialNumber() const {
    return info() == nullptr ? std::string() : internal::octets(info()->SerialNumber);
}

std::string Certificate::signatureAlgorithm() const {
    if (info() == nullptr || info()->SignatureAlgorithm.pszObjId == nullptr) {
        return {};
    }
    return info()->SignatureAlgorithm.pszObjId;
}

std::string Certificate::hashAlgorithm() const {
    const auto key = publicKey();
    return key ? crypto::tools::hashOidFromPublicKeyAlgOid(key->algObjId()) : std::string();
}

boost::posix_time::ptime Certificate::notBefore() const {
    return info() == nullptr ? boost::posix_time::ptime() : converter::to_ptime(info()->NotBefore);
}

boost::posix_time::ptime Certificate::notAfter() const {
    return info() == nullptr ? boost::posix_time::ptime() : converter::to_ptime(info()->NotAfter);
}

crypto::NameInfo Certificate::issuerNameInfo() const {
    return ssl::Certificate(raw()).issuerNameInfo();
}

crypto::NameInfo Certificate::subjectNameInfo() const {
    return ssl::Certificate(raw()).subjectNameInfo();
}

crypto::EnhancedKeyUsage Certificate::enhancedKeyUsage() const {
    return ssl::Certificate(raw()).enhancedKeyUsage();
}

std::string Certificate::friendlyName() const {
    if (context_ == nullptr) {
        return {};
    }
    const auto property = CertGetCertificateContextPropertyEx(native(), capi::CERT_FRIENDLY_NAME_PROP_ID);
    std::wstring name(property.size() / sizeof(wchar_t), L'\0');
    std::memcpy(name.data(), property.data(), name.size() * sizeof(wchar_t));
    return utf8OrEmpty(name.substr(0, name.find(L'\0')));
}

bool Certificate::setFriendlyName(boost::string_view name) const {
    if (name.empty()) {
        return false;
    }
    const auto refused = [](unsigned code) {
        log::warning("wincrypt: can't set 'friendlyname' to certificate: " + std::to_string(code));
        return false;
    };
    std::wstring wide;
    try {
        wide = plugin::converter::utf8_to_utf16(name);
    } catch (const std::range_error&) {
        constexpr unsigned noUnicodeTranslation = 1113; // ERROR_NO_UNICODE_TRANSLATION
        return refused(noUnicodeTranslation);
    }
    const CRYPT_DATA_BLOB blob{static_cast<DWORD>((wide.size() + 1) * sizeof(wchar_t)),
                               reinterpret_cast<BYTE*>(wide.data())};
    if (CertSetCertificateContextProperty(native(), capi::CERT_FRIENDLY_NAME_PROP_ID, 0, &blob) != 0) {
        return true;
    }
    return refused(GetLastErrorEx());
}

boost::optional<std::string> Certificate::thumbprint() const {
    if (context_ == nullptr) {
        return boost::none;
    }
    const auto hash = [this](BYTE* out, DWORD* size) {
        if (CryptHashCertificate(0, capi::CALG_SHA1, 0, native()->pbCertEncoded, native()->cbCertEncoded, out, size) !=
            0) {
            return true;
        }
        log::warning("wincrypt: thumbprint: " + std::to_string(GetLastErrorEx()));
        return false;
    };
    DWORD size = 0;
    if (!hash(nullptr, &size)) {
        return boost::none;
    }
    if (!internal::acceptable(size)) {
        log::warning("wincrypt: thumbprint: size is 0");
        return boost::none;
    }
    std::string digest(size, '\0');
    if (!hash(reinterpret_cast<BYTE*>(digest.data()), &size)) {
        return boost::none;
    }
    return digest;
}

bool Certificate::chain() const {
    return CertificateVerifier(*this).validateChain(capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY |
                                                    capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL);
}

} // namespace orvik::plugin::wincrypt
