#include "weak.hpp"

#include "crypto/wincrypt/tools.hpp"
#include "der_head.hpp"
#include "public_key.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace klunortredi::cli {

namespace {

using orvik::plugin::crypto::ICertificate;
using orvik::plugin::crypto::weaknesses;

constexpr std::string_view rsaPss = "1.2.840.113549.1.1.10";
constexpr std::string_view rsaPssDefaultDigest = "1.3.14.3.2.26"; // SHA-1 (RFC 8017, A.2.3)

template <class Blob>
std::string_view octetsOf(const Blob& blob) {
    return {reinterpret_cast<const char*>(blob.pbData), blob.cbData};
}

std::string_view textOf(const char* text) {
    return text == nullptr ? std::string_view{} : std::string_view(text);
}

const CERT_INFO& infoOf(const ICertificate& certificate) {
    return *orvik::plugin::wincrypt::tools::toPCCERT_CONTEXT(certificate.context())->pCertInfo;
}

} // namespace

std::string digestOidOf(const CRYPT_ALGORITHM_IDENTIFIER& signatureAlgorithm) {
    const std::string_view algorithm = textOf(signatureAlgorithm.pszObjId);
    if (algorithm != rsaPss) {
        return std::string(algorithm);
    }
    DerHead parameters(octetsOf(signatureAlgorithm.Parameters));
    if (!parameters.enter(tagSequence)) {
        return {};
    }
    if (!parameters.enter(tagExplicit0)) {
        return std::string(rsaPssDefaultDigest);
    }
    const auto oid = parameters.enter(tagSequence) ? parameters.take(tagOid) : std::nullopt;
    return oid ? dottedOid(*oid) : std::string{};
}

std::vector<Weakness> keyWeaknesses(const ICertificate& certificate, const boost::posix_time::ptime& time) {
    const CERT_PUBLIC_KEY_INFO& key = infoOf(certificate).SubjectPublicKeyInfo;
    return weaknesses({{}, textOf(key.Algorithm.pszObjId), keyBits(certificate)}, time);
}

std::vector<Weakness> signatureWeaknesses(const ICertificate& certificate, const boost::posix_time::ptime& time) {
    const std::string digest = digestOidOf(infoOf(certificate).SignatureAlgorithm);
    return weaknesses({digest, {}, 0}, time);
}

std::vector<Weakness> weaknessesOf(std::initializer_list<std::string_view> digests, const ICertificate* certificate) {
    std::vector<Weakness> found;
    const auto add = [&found](const std::vector<Weakness>& more) {
        std::ranges::copy_if(more, std::back_inserter(found), [&found](const Weakness& weakness) {
            return std::ranges::none_of(
                found, [&](const Weakness& other) { return std::string_view(other.name) == weakness.name; });
        });
    };
    for (const std::string_view digest : digests) {
        add(weaknesses({digest, {}, 0}, {}));
    }
    if (certificate != nullptr) {
        add(keyWeaknesses(*certificate, {}));
    }
    return found;
}

std::optional<std::string> brokenReason(const std::vector<Weakness>& found) {
    using orvik::plugin::crypto::WeaknessLevel;
    const auto broken = std::ranges::find(found, WeaknessLevel::never, &Weakness::level);
    return broken == found.end() ? std::nullopt
                                 : std::optional(std::string(broken->name) + " is broken: " + broken->reason);
}

std::string describe(const Weakness& weakness) {
    return std::string(weakness.name) + ": " + weakness.reason + " (since " + weakness.date + ")";
}

} // namespace klunortredi::cli
