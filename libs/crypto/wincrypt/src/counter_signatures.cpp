#include "crypto/wincrypt/tools_verify.hpp"

#include "signature_verdict.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <span>
#include <string_view>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

constexpr std::string_view counterSignatureOid = "1.2.840.113549.1.9.6";

template <class Blob>
std::string octets(const Blob& blob) {
    return blob.cbData == 0 ? std::string() : std::string(reinterpret_cast<const char*>(blob.pbData), blob.cbData);
}

std::string text(const char* value) {
    return value == nullptr ? std::string() : std::string(value);
}

CounterSignature notJudged(unsigned code) {
    CounterSignature entry{};
    entry.verdict = SignatureVerdict::unknown;
    entry.code = code;
    return entry;
}

CounterSignature entry(const CMSG_COUNTER_SIGNATURE& from) {
    CounterSignature to = notJudged(from.dwError);
    to.verdict = verdictOf(from.dwError);
    to.signingTime = octets(from.SigningTime);
    to.digestAlgorithm = text(from.HashAlgorithm.pszObjId);
    to.signatureAlgorithm = text(from.HashEncryptionAlgorithm.pszObjId);
    to.signatureParameters = octets(from.HashEncryptionAlgorithm.Parameters);
    if (from.Certificate.cbData != 0) {
        to.certificate = boost::make_shared<Certificate>(octets(from.Certificate));
    }
    if (from.dwParent != capi::CMSG_NO_PARENT) {
        to.parent = from.dwParent;
    }
    return to;
}

/// One entry for each value, none of them judged.
std::vector<CounterSignature> unjudged(void* message, unsigned index, unsigned code) {
    const std::string signer = CryptMsgGetParamEx(message, capi::CMSG_SIGNER_INFO_PARAM, index);
    const CRYPT_ATTRIBUTES& attributes = reinterpret_cast<const CMSG_SIGNER_INFO*>(signer.data())->UnauthAttrs;
    std::vector<CounterSignature> list;
    for (const CRYPT_ATTRIBUTE& attribute : std::span(attributes.rgAttr, attributes.cAttr)) {
        if (attribute.pszObjId == counterSignatureOid) {
            list.insert(list.end(), attribute.cValue, notJudged(code));
        }
    }
    return list;
}

} // namespace
} // namespace internal

std::vector<CounterSignature> counterSignatures(void* hMsg, unsigned index) {
    DWORD size = 0;
    std::string judged;
    bool known = CryptMsgGetParam(hMsg, capi::CMSG_COUNTER_SIGNATURES_PARAM, index, nullptr, &size) != 0;
    if (known && size >= sizeof(CMSG_COUNTER_SIGNATURES)) {
        judged.resize(size);
        known = CryptMsgGetParam(hMsg, capi::CMSG_COUNTER_SIGNATURES_PARAM, index, judged.data(), &size) != 0;
    }
    if (!known || judged.empty()) {
        return internal::unjudged(hMsg, index, known ? capi::NTE_FAIL : GetLastErrorEx());
    }
    const auto& from = *reinterpret_cast<const CMSG_COUNTER_SIGNATURES*>(judged.data());
    std::vector<CounterSignature> list;
    for (const CMSG_COUNTER_SIGNATURE& one : std::span(from.rgCounterSignature, from.cCounterSignature)) {
        list.push_back(internal::entry(one));
    }
    return list;
}

} // namespace orvik::plugin::wincrypt::tools
