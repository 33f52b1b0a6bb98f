#include "counter_signatures.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "signature_reason.hpp"
#include "signing_time.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>

namespace klunortredi::cli {

namespace {

namespace tools = orvik::plugin::wincrypt::tools;

/// Counter-signatures after which no further signer's are judged. A message may have hundreds of signers with 16 of
/// them each, and each is tried with up to four certificates; real messages have one or two.
constexpr std::size_t judgedAtMost = 64;

struct Reason {
    std::uint32_t code;
    const char* why;
};

constexpr const char* notOffered = "the service does not judge counter-signatures";

/// Codes that mean something else about a counter-signature than about a signature.
constexpr Reason counterReasons[] = {
    {capi::CRYPT_E_HASH_VALUE, "it is over another signature value"},
    {capi::CRYPT_E_UNEXPECTED_MSG_TYPE, "it has a content type, which counter-signatures do not have"},
    {capi::CRYPT_E_SIGNER_NOT_FOUND, "the counter-signer's certificate is not in the message"},
    {capi::CRYPT_E_ASN1_LARGE, "there are more of them than the service judges, or it is too large"},
    {capi::CRYPT_E_INVALID_MSG_TYPE, notOffered},
    {capi::CRYPT_E_CONTROL_TYPE, notOffered},
    {capi::ERROR_INVALID_PARAMETER, notOffered},
};

std::string reasonOf(std::uint32_t code) {
    const auto* own = std::find_if(std::begin(counterReasons), std::end(counterReasons),
                                   [code](const Reason& row) { return row.code == code; });
    return own == std::end(counterReasons) ? signatureReason(code) : own->why;
}

CounterSignature notJudged(std::string reason) {
    CounterSignature counter;
    counter.reason = std::move(reason);
    return counter;
}

std::string signatureDigestOf(const tools::CounterSignature& from) {
    std::string oid = from.signatureAlgorithm;
    std::string parameters = from.signatureParameters;
    return digestOidOf(
        {oid.data(), {static_cast<DWORD>(parameters.size()), reinterpret_cast<BYTE*>(parameters.data())}});
}

CounterSignature entry(const tools::CounterSignature& from) {
    CounterSignature counter;
    counter.certificate = from.certificate;
    counter.verdict = from.verdict;
    counter.reason = from.verdict == SignatureVerdict::valid ? std::string{} : reasonOf(from.code);
    counter.signingTime =
        signingTimeOf(reinterpret_cast<const unsigned char*>(from.signingTime.data()), from.signingTime.size());
    counter.digestAlgorithm = from.digestAlgorithm;
    counter.signatureDigest = signatureDigestOf(from);
    judgeWeaknesses(counter);
    return counter;
}

/// Puts each under the one that it is over; those stand before it in the list.
std::vector<CounterSignature> nested(const std::vector<tools::CounterSignature>& list) {
    std::vector<CounterSignature> all;
    std::transform(list.begin(), list.end(), std::back_inserter(all), entry);
    std::vector<CounterSignature> ofTheSigner;
    for (std::size_t i = all.size(); i-- > 0;) {
        const bool overAnother = list[i].parent && *list[i].parent < i;
        auto& siblings = overAnother ? all[*list[i].parent].counters : ofTheSigner;
        siblings.insert(siblings.begin(), std::move(all[i]));
    }
    return ofTheSigner;
}

bool anyWith(const std::vector<CounterSignature>& counters, SignatureVerdict verdict) {
    return std::any_of(counters.begin(), counters.end(), [verdict](const CounterSignature& counter) {
        return counter.verdict == verdict || anyWith(counter.counters, verdict);
    });
}

} // namespace

std::vector<CounterSignature> CounterSignatureReader::read(unsigned index) {
    if (judged_ >= judgedAtMost) {
        return {notJudged("the message has more counter-signatures than are judged")};
    }
    try {
        const std::vector<tools::CounterSignature> list = tools::counterSignatures(message_, index);
        judged_ += list.size();
        return nested(list);
    } catch (const orvik::plugin::crypto::exception::SystemException& e) {
        return {notJudged(reasonOf(static_cast<std::uint32_t>(e.code().value())))};
    }
}

bool anyUnknown(const std::vector<CounterSignature>& counters) {
    return anyWith(counters, SignatureVerdict::unknown);
}

bool anyValid(const std::vector<CounterSignature>& counters) {
    return anyWith(counters, SignatureVerdict::valid);
}

} // namespace klunortredi::cli
