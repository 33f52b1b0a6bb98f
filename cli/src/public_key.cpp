#include "public_key.hpp"

#include "crypto/wincrypt/tools.hpp"
#include "der_head.hpp"

#include <bit>
#include <cstddef>
#include <string_view>

namespace klunortredi::cli {

namespace {

constexpr std::string_view ecPublicKey = "1.2.840.10045.2.1";
constexpr std::string_view rsaArc = "1.2.840.113549.1.1.";
constexpr std::string_view gostArc = "1.2.643.";
constexpr unsigned char tagOctetString = 0x04;
constexpr unsigned octetBits = 8;

struct Key {
    std::string_view algorithm; ///< OID
    std::string_view octets;    ///< of the subjectPublicKey
};

/// Views into the certificate's context.
Key keyOf(const orvik::plugin::crypto::ICertificate& certificate) {
    const auto* context = orvik::plugin::wincrypt::tools::toPCCERT_CONTEXT(certificate.context());
    const CERT_PUBLIC_KEY_INFO& info = context->pCertInfo->SubjectPublicKeyInfo;
    return {info.Algorithm.pszObjId == nullptr ? std::string_view{} : std::string_view(info.Algorithm.pszObjId),
            {reinterpret_cast<const char*>(info.PublicKey.pbData), info.PublicKey.cbData}};
}

/// The modulus of an RSAPublicKey (RFC 8017, A.1.1) without leading zeros; empty when it cannot be read.
std::string_view modulusOf(std::string_view key) {
    DerHead head(key);
    const auto modulus = head.enter(tagSequence) ? head.take(tagInteger) : std::nullopt;
    const auto first = modulus ? modulus->find_first_not_of('\0') : std::string_view::npos;
    return first == std::string_view::npos ? std::string_view{} : modulus->substr(first);
}

/// The x coordinate of a point (SEC 1, 2.3.3), which may be written compressed, not, or as a hybrid of both (ANSI
/// X9.62, 4.3.6).
std::string_view abscissa(std::string_view point) {
    constexpr std::string_view bothCoordinates = "\4\6\7";
    if (point.empty()) {
        return point;
    }
    const auto coordinates = point.substr(1);
    const bool both = bothCoordinates.find(point.front()) != std::string_view::npos;
    return coordinates.substr(0, both ? coordinates.size() / 2 : coordinates.size());
}

} // namespace

std::string keyIdentity(const orvik::plugin::crypto::ICertificate& certificate) {
    const Key key = keyOf(certificate);
    if (key.algorithm == ecPublicKey) {
        return std::string(abscissa(key.octets));
    }
    if (key.algorithm.starts_with(rsaArc)) {
        const std::string_view modulus = modulusOf(key.octets);
        return std::string(modulus.empty() ? key.octets : modulus);
    }
    if (key.algorithm.starts_with(gostArc)) {
        const auto point = DerHead(key.octets).take(tagOctetString);
        return std::string(point ? point->substr(0, point->size() / 2) : key.octets);
    }
    return std::string(key.octets);
}

unsigned keyBits(const orvik::plugin::crypto::ICertificate& certificate) {
    const Key key = keyOf(certificate);
    if (key.algorithm == ecPublicKey) {
        return static_cast<unsigned>(abscissa(key.octets).size()) * octetBits;
    }
    const std::string_view modulus = key.algorithm.starts_with(rsaArc) ? modulusOf(key.octets) : std::string_view{};
    return modulus.empty() ? 0
                           : static_cast<unsigned>(modulus.size() - 1) * octetBits +
                                 static_cast<unsigned>(std::bit_width(static_cast<unsigned char>(modulus.front())));
}

} // namespace klunortredi::cli
