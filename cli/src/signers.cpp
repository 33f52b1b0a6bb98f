#include "signers.hpp"

#include "authority_certificates.hpp"
#include "capi/constants.hpp"
#include "counter_signatures.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/constant.hpp"
#include "signature_reason.hpp"
#include "signing_time.hpp"

#include <algorithm>
#include <span>
#include <string_view>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;

constexpr std::string_view timestampToken = "1.2.840.113549.1.9.16.2.14";
constexpr std::string_view counterSignature = "1.2.840.113549.1.9.6";

const CRYPT_ATTRIBUTE* attribute(const CRYPT_ATTRIBUTES& attributes, std::string_view oid) {
    for (const CRYPT_ATTRIBUTE& entry : std::span(attributes.rgAttr, attributes.cAttr)) {
        if (entry.pszObjId == oid) {
            return &entry;
        }
    }
    return nullptr;
}

boost::posix_time::ptime timeOf(const CRYPT_ATTRIBUTE* signingTime) {
    if (signingTime == nullptr || signingTime->cValue == 0) {
        return {};
    }
    return signingTimeOf(signingTime->rgValue->pbData, signingTime->rgValue->cbData);
}

template <class Blob>
std::string_view octetsOf(const Blob& blob) {
    return blob.pbData == nullptr ? std::string_view{}
                                  : std::string_view(reinterpret_cast<const char*>(blob.pbData), blob.cbData);
}

/// Every value of every attribute of the type: a careless program may have added a second attribute.
std::vector<std::string_view> timestampTokens(const CRYPT_ATTRIBUTES& attributes) {
    std::vector<std::string_view> tokens;
    for (const CRYPT_ATTRIBUTE& entry : std::span(attributes.rgAttr, attributes.cAttr)) {
        for (const CRYPT_ATTR_BLOB& value : std::span(entry.rgValue, entry.cValue)) {
            if (entry.pszObjId == timestampToken) {
                tokens.push_back(octetsOf(value));
            }
        }
    }
    return tokens;
}

Signer readSigner(void* message, unsigned index, CounterSignatureReader& counters, TimestampReader& timestamps) {
    Signer signer;
    try {
        std::string octets = wincrypt::CryptMsgGetParamEx(message, capi::CMSG_SIGNER_INFO_PARAM, index);
        const auto* info = reinterpret_cast<const CMSG_SIGNER_INFO*>(octets.data());
        signer.digestAlgorithm = info->HashAlgorithm.pszObjId;
        signer.signatureDigest = digestOidOf(info->HashEncryptionAlgorithm);
        signer.signingTime = timeOf(attribute(info->AuthAttrs, orvik::plugin::oid::signingTime));
        signer.timestamps = timestamps.read(timestampTokens(info->UnauthAttrs), octetsOf(info->EncryptedHash));
        if (attribute(info->UnauthAttrs, counterSignature) != nullptr) {
            signer.counters = counters.read(index);
        }
    } catch (const orvik::plugin::crypto::exception::SystemException&) {
        return {}; // its verdict says what is wrong with it
    }
    return signer;
}

std::string reasonOf(const SignerVerdict& verdict, const CertificatePtr& outside) {
    if (verdict.code == capi::CRYPT_E_ASN1_LARGE) {
        return "more certificates have the signer's issuer and serial number than are tried, or one is too large";
    }
    if (verdict.code != capi::CRYPT_E_NOT_FOUND && verdict.code != capi::CRYPT_E_SIGNER_NOT_FOUND) {
        return signatureReason(verdict.code);
    }
    return outside ? "the certificate given with --signer-cert is not the signer's, and the message does not have it"
                   : "the signer's certificate is not in the message; name it with --signer-cert";
}

} // namespace

bool isSigner(const orvik::plugin::crypto::ICertificate& certificate, const std::vector<Signer>& signers) {
    return std::any_of(signers.begin(), signers.end(), [octets = certificate.raw()](const Signer& signer) {
        return signer.certificate && signer.certificate->raw() == octets;
    });
}

std::vector<Signer> readSigners(void* message, const std::vector<std::string>& further) {
    std::vector<Signer> signers;
    CounterSignatureReader counters(message);
    TimestampReader timestamps([&] { return authorityCandidates(further, readCertificates(message)); });
    const unsigned count = wincrypt::tools::param(message, capi::CMSG_SIGNER_COUNT_PARAM);
    for (unsigned index = 0; index < count; ++index) {
        signers.push_back(readSigner(message, index, counters, timestamps));
    }
    return signers;
}

std::vector<std::string> readCertificates(void* message) {
    std::vector<std::string> all;
    const unsigned count = wincrypt::tools::param(message, capi::CMSG_CERT_COUNT_PARAM);
    for (unsigned index = 0; index < count; ++index) {
        all.push_back(wincrypt::CryptMsgGetParamEx(message, capi::CMSG_CERT_PARAM, index));
    }
    return all;
}

void judge(Signer& signer, const SignerVerdict& verdict, const CertificatePtr& outside) {
    signer.certificate = verdict.certificate;
    signer.verdict = verdict.verdict;
    signer.code = verdict.code;
    signer.reason = verdict.verdict == SignatureVerdict::valid ? std::string{} : reasonOf(verdict, outside);
    judgeWeaknesses(signer);
}

} // namespace klunortredi::cli
