#include "crypto/wincrypt/tools_timestamp.hpp"

#include "decoded_structure.hpp"
#include "struct_type.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/hash.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <set>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

using crypto::exception::SystemException;
using plugin::exception::ApplicationException;
using Code = ApplicationException::Code;

/// id-aa-signatureTimeStampToken (RFC 3161, appendix A).
constexpr const char* timestampTokenOid = "1.2.840.113549.1.9.16.2.14";
constexpr DWORD requestVersion = 1;

[[noreturn]] void fail(const char* function) {
    raise(SystemException(), {"tools", function});
}

[[noreturn]] void refuse(Code code, const char* function) {
    raise(ApplicationException(code), {"tools", function});
}

const BYTE* bytes(boost::string_view octets) {
    return reinterpret_cast<const BYTE*>(octets.data());
}

/// The CryptoAPI's structures are not const-correct; nothing is written through this.
CRYPTOAPI_BLOB blob(boost::string_view octets) {
    return {static_cast<DWORD>(octets.size()), const_cast<BYTE*>(bytes(octets))};
}

std::string octets(const CRYPTOAPI_BLOB& from) {
    return check_blob(&from) ? std::string(reinterpret_cast<const char*>(from.pbData), from.cbData) : std::string();
}

/// Reads a whole message; `function` is the place of its failures.
void open(HCRYPTMSG& message, const HCRYPTPROV& provider, boost::string_view encoded, DWORD flags,
          const char* function) {
    *message.put() = CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, flags, 0, provider.get(), nullptr, nullptr);
    if (!message) {
        fail(function);
    }
    if (CryptMsgUpdate(message.get(), bytes(encoded), static_cast<DWORD>(encoded.size()), 1) == 0) {
        fail(function);
    }
}

/// A decoded structure in octets of its own. They stay where they are: the structure points into them.
template <class T>
class Decoded {
public:
    Decoded(DWORD type, boost::string_view encoded, const char* function)
        : octets_(CryptDecodeObjectEx(capi::X509_AND_PKCS_7, structType(type), bytes(encoded),
                                      static_cast<DWORD>(encoded.size()))) {
        if (octets_.empty() || structure<T>(octets_) == nullptr) {
            fail(function);
        }
    }
    const T* operator->() const { return structure<T>(octets_); }

private:
    std::string octets_;
};

const std::set<unsigned int>& acceptedStatuses() {
    static const std::set<unsigned int> statuses{0, 1}; // granted, grantedWithMods
    return statuses;
}

bool isTspResponseSignatureValid(const TspResponse::Content& content, const HCRYPTPROV& provider) {
    constexpr const char* here = "isTspResponseSignatureValid";
    const Certificate certificate{boost::string_view(content.certificate)};
    HCRYPTMSG message;
    open(message, provider, content.token, 0, here);
    return CryptMsgControl(message.get(), 0, capi::CMSG_CTRL_VERIFY_SIGNATURE,
                           toPCCERT_CONTEXT(certificate.context())->pCertInfo) != 0;
}

} // namespace
} // namespace internal

std::string hash(const HCRYPTPROV& provider, const std::string& hashOid, boost::string_view data) {
    CryptHash value(provider, hashOid);
    value.update(internal::bytes(data), data.size());
    return value.finalize();
}

std::string makeTspRequest(const HCRYPTPROV& provider, boost::string_view signature, boost::string_view nonce,
                           unsigned int flags) {
    HCRYPTMSG message;
    internal::open(message, provider, signature, flags, "makeTspRequest");
    const std::string algorithm = CryptMsgGetParamEx(message.get(), capi::CMSG_SIGNER_HASH_ALGORITHM_PARAM, 0);
    if (algorithm.size() < sizeof(CRYPT_ALGORITHM_IDENTIFIER)) {
        internal::fail("makeTspRequest");
    }
    std::string hashOid = reinterpret_cast<const CRYPT_ALGORITHM_IDENTIFIER*>(algorithm.data())->pszObjId;
    const std::string value = CryptMsgGetParamEx(message.get(), capi::CMSG_ENCRYPTED_DIGEST, 0);
    const std::string imprint = hash(provider, hashOid, value);

    CRYPT_TIMESTAMP_REQUEST request{};
    request.dwVersion = internal::requestVersion;
    request.HashAlgorithm.pszObjId = hashOid.data();
    request.HashedMessage = internal::blob(imprint);
    request.Nonce = internal::blob(nonce);
    request.fCertReq = 1;
    return CryptEncodeObjectEx(capi::X509_AND_PKCS_7, structType(capi::TIMESTAMP_REQUEST), &request);
}

TspResponse parseTspResponse(const HCRYPTPROV& provider, boost::string_view response) {
    const internal::Decoded<CRYPT_TIMESTAMP_RESPONSE> decoded(capi::TIMESTAMP_RESPONSE, response, "parseTspResponse");
    TspResponse parsed;
    parsed.status = decoded->dwStatus;
    if (check_blob(&decoded->ContentInfo)) {
        TspResponse::Content content;
        parseTspContent(content, provider, decoded->ContentInfo);
        parsed.content = content;
    }
    return parsed;
}

void parseTspContent(TspResponse::Content& content, const HCRYPTPROV& provider, const CRYPTOAPI_BLOB& token) {
    constexpr const char* here = "parseTspContent";
    content.token = internal::octets(token);
    HCRYPTMSG message;
    internal::open(message, provider, content.token, 0, here);
    content.certificate = CryptMsgGetParamEx(message.get(), capi::CMSG_CERT_PARAM, 0);
    const std::string encoded = CryptMsgGetParamEx(message.get(), capi::CMSG_CONTENT_PARAM, 0);
    const internal::Decoded<CRYPT_TIMESTAMP_INFO> info(capi::TIMESTAMP_INFO, encoded, here);
    content.messageImprint = internal::octets(info->HashedMessage);
    content.time = converter::to_ptime(info->ftTime);
}

void validateTspResponse(const TspResponse& response, const HCRYPTPROV& provider, boost::string_view imprint) {
    constexpr const char* here = "validateTspResponse";
    if (internal::acceptedStatuses().count(response.status) == 0) {
        internal::refuse(internal::Code::timestampRefused, here);
    }
    if (!response.content) {
        internal::refuse(internal::Code::timestampMissing, here);
    }
    validateTspContent(*response.content, provider, imprint);
}

void validateTspContent(const TspResponse::Content& content, const HCRYPTPROV& provider, boost::string_view imprint) {
    constexpr const char* here = "validateTspContent";
    if (content.messageImprint != imprint || !internal::isTspResponseSignatureValid(content, provider)) {
        internal::refuse(internal::Code::timestampInvalid, here);
    }
}

std::string addTimestampToSignature(const HCRYPTPROV& provider, boost::string_view signature,
                                    boost::string_view token) {
    constexpr const char* here = "addTimestampToSignature";
    HCRYPTMSG message;
    internal::open(message, provider, signature, 0, here);
    CRYPT_ATTR_BLOB value = internal::blob(token);
    std::string oid = internal::timestampTokenOid;
    const CRYPT_ATTRIBUTE attribute{oid.data(), 1, &value};
    const std::string encoded =
        CryptEncodeObjectEx(capi::X509_AND_PKCS_7, structType(capi::PKCS_ATTRIBUTE), &attribute);
    const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA parameters{sizeof parameters, 0, internal::blob(encoded)};
    if (CryptMsgControl(message.get(), 0, capi::CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, &parameters) == 0) {
        internal::fail(here);
    }
    return CryptMsgGetParamEx(message.get(), capi::CMSG_ENCODED_MESSAGE, 0);
}

} // namespace orvik::plugin::wincrypt::tools
