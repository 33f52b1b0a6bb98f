#include "timestamp_glue.hpp"

#include "hashing.hpp"
#include "token_rules.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools_timestamp.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <boost/smart_ptr/make_shared.hpp>

namespace orvik::plugin::timestamp_glue {

namespace {

using crypto::exception::SystemException;
using plugin::exception::ApplicationException;
using plugin::exception::Message_;
using Code = ApplicationException::Code;
using wincrypt::HCRYPTPROV;

constexpr unsigned granted = 0; // PKIStatus (RFC 3161, 2.4.2)
constexpr unsigned grantedWithMods = 1;

[[noreturn]] void refuse(Code code, const std::string& why) {
    raise(ApplicationException(code) << Message_(why), {"timestamp_glue", "checkedToken"});
}

/// What a time-stamp on a CMS signature covers.
struct Stamped {
    std::string digestOid; ///< of the first signer
    std::string value;     ///< its signature value
};

Stamped firstSigner(boost::string_view signature) {
    const Token message(signature);
    return {message.digestAlgorithm(), wincrypt::CryptMsgGetParamEx(message.message(), capi::CMSG_ENCRYPTED_DIGEST, 0)};
}

/// The response by the plug-in's own function; one that cannot be read is the authority's fault.
wincrypt::tools::TspResponse parsed(const HCRYPTPROV& provider, boost::string_view response) {
    if (response.size() > largestToken) {
        refuse(Code::timestampInvalid, "the response is larger than " + std::to_string(largestToken) + " octets");
    }
    try {
        return wincrypt::tools::parseTspResponse(provider, response);
    } catch (const SystemException&) {
        refuse(Code::timestampInvalid, "the response cannot be read, or its token carries no certificate");
    }
}

/// What the plug-in's own checks refuse, in words. A token that does not do has a reason of its own.
void validate(const wincrypt::tools::TspResponse& answer, const HCRYPTPROV& provider, const std::string& imprint) {
    try {
        wincrypt::tools::validateTspResponse(answer, provider, imprint);
    } catch (const ApplicationException& e) {
        switch (static_cast<Code>(e.code().value())) {
        case Code::timestampRefused:
            refuse(Code::timestampRefused, "it refused the request (status " + std::to_string(answer.status) + ")");
        case Code::timestampMissing:
            refuse(Code::timestampMissing, "its response carries no token");
        default:
            refuse(Code::timestampInvalid, "the token is for something else, or not validly signed");
        }
    }
}

/// The token of a response that is acceptable in every respect.
std::string checkedToken(boost::string_view response, boost::string_view octets, const Asked& asked) {
    const HCRYPTPROV provider(*providerFor(asked.digestOid), nullptr);
    const std::string imprint = wincrypt::tools::hash(provider, asked.digestOid, octets);
    auto answer = parsed(provider, response);
    const bool looksGood = answer.content && (answer.status == granted || answer.status == grantedWithMods);
    if (looksGood) {
        const TimestampVerdict verdict = judgeToken(answer.content->token, octets, asked, {});
        if (verdict.result != TimestampVerdict::Result::valid) {
            refuse(Code::timestampInvalid, "the time-stamp is not acceptable: " + verdict.reason);
        }
        answer.content->certificate = verdict.authority->raw(); // the first one may be an issuer's
    }
    validate(answer, provider, imprint);
    return answer.content->token;
}

} // namespace

WincryptTimestampTools::WincryptTimestampTools() = default;
WincryptTimestampTools::~WincryptTimestampTools() = default;

std::string WincryptTimestampTools::makeRequest(boost::string_view signature, boost::string_view nonce) const {
    const HCRYPTPROV provider(*providerFor(firstSigner(signature).digestOid), nullptr);
    return wincrypt::tools::makeTspRequest(provider, signature, nonce, 0);
}

std::string WincryptTimestampTools::embed(boost::string_view signature, boost::string_view response,
                                          boost::string_view nonce) const {
    const Stamped stamped = firstSigner(signature);
    const std::string token = checkedToken(response, stamped.value, {stamped.digestOid, nonce.to_string()});
    return wincrypt::tools::addTimestampToSignature(HCRYPTPROV(), signature, token);
}

std::string WincryptTimestampTools::makeRequestFor(boost::string_view octets, const std::string& digestOid,
                                                   boost::string_view nonce) const {
    std::string imprint = hashOf(digestOid, octets);
    std::string algorithm = digestOid;
    std::string number = nonce.to_string();
    CRYPT_TIMESTAMP_REQUEST request{};
    request.dwVersion = 1;
    request.HashAlgorithm.pszObjId = algorithm.data();
    request.HashedMessage = {static_cast<DWORD>(imprint.size()), reinterpret_cast<BYTE*>(imprint.data())};
    request.Nonce = {static_cast<DWORD>(number.size()), reinterpret_cast<BYTE*>(number.data())};
    request.fCertReq = 1;
    return wincrypt::CryptEncodeObjectEx(capi::X509_AND_PKCS_7, structType(capi::TIMESTAMP_REQUEST), &request);
}

std::string WincryptTimestampTools::tokenFor(boost::string_view octets, const std::string& digestOid,
                                             boost::string_view response, boost::string_view nonce) const {
    return checkedToken(response, octets, {digestOid, nonce.to_string()});
}

crypto::cadest::TimestampVerdict WincryptTimestampTools::judge(boost::string_view token,
                                                               boost::string_view octets) const {
    return judgeToken(token, octets, std::nullopt, {});
}

crypto::cadest::TimestampVerdict WincryptTimestampTools::judge(boost::string_view token, boost::string_view octets,
                                                               const CertificateSource& outside) const {
    return judgeToken(token, octets, std::nullopt, outside);
}

void installTimestampTools() {
    crypto::cadest::TimestampTools::install(boost::make_shared<const WincryptTimestampTools>());
}

} // namespace orvik::plugin::timestamp_glue
