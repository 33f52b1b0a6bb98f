#include "crypto/wincrypt/tools_verify.hpp"

#include "decoding_message.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/log.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <exception>
#include <istream>
#include <string>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

using crypto::exception::CryptoException;
using crypto::exception::SystemException;
using exception::Location;

constexpr Location here{"tools", "verify"};

/// The first signer's certificate: the message's own, else the caller's.
boost::shared_ptr<crypto::ICertificate> signerOf(void* message, const VerifyHooks& hooks) {
    if (param(message, capi::CMSG_CERT_COUNT_PARAM) == 0) {
        if (!hooks.certificate) {
            raise(CryptoException(CryptoException::Code::noCertificate), here);
        }
        return hooks.certificate;
    }
    const auto carried = certificate(message);
    return carried ? carried : hooks.certificate;
}

bool check(std::istream& signature, const boost::optional<std::istream&>& content, const VerifyHooks& hooks) {
    const DecodingMessage message(content.has_value(), hooks);
    message.feed(signature, "signature");
    const auto signer = signerOf(message.get(), hooks);
    if (!signer || signer->context() == nullptr) {
        return false;
    }
    if (content) {
        message.feed(*content, "content");
    }
    if (CryptMsgControl(message.get(), 0, capi::CMSG_CTRL_VERIFY_SIGNATURE,
                        toPCCERT_CONTEXT(signer->context())->pCertInfo) == 0) {
        raise(SystemException(), here);
    }
    if (hooks.inspect) {
        hooks.inspect(message.get());
    }
    return true;
}

/// The verdict, and what the last error is to be when it is false.
bool check(std::istream& signature, const boost::optional<std::istream&>& content, const VerifyHooks& hooks,
           unsigned& error) {
    error = capi::CRYPT_E_NOT_FOUND;
    try {
        return check(signature, content, hooks);
    } catch (const SystemException& e) {
        error = static_cast<unsigned>(e.code().value());
        log::error(std::string("wincrypt: verify failed: ") + e.what());
    } catch (const std::exception& e) {
        log::error(std::string("wincrypt: verify failed: ") + e.what());
    } catch (...) { // foreign code in the streams; there is no text to log
        return false;
    }
    return false;
}

} // namespace
} // namespace internal

bool verify(std::istream& signature, const boost::optional<std::istream&>& content) {
    return verify(signature, content, {});
}

bool verify(std::istream& signature, const boost::optional<std::istream&>& content, const VerifyHooks& hooks) {
    unsigned error = 0;
    const bool valid = internal::check(signature, content, hooks, error);
    if (!valid) {
        // Closing the message and formatting the log record have left their own errors behind.
        SetLastErrorEx(error);
    }
    return valid;
}

boost::shared_ptr<crypto::ICertificate> certificate(void* hMsg) {
    const HCERTSTORE store(hMsg);
    if (!store) {
        raise(internal::SystemException(), {"tools", "certificate"});
    }
    auto info = certInfo(hMsg, 0);
    const auto* found = CertGetSubjectCertificateFromStore(store.get(), capi::X509_AND_PKCS_7,
                                                           reinterpret_cast<CERT_INFO*>(info.data()));
    if (found == nullptr) {
        return {};
    }
    return boost::make_shared<Certificate>(fromPCCERT_CONTEXT(found));
}

} // namespace orvik::plugin::wincrypt::tools
