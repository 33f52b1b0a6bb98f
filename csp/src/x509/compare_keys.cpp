#include "x509/compare_keys.hpp"

#include "core/error.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/key_pair.hpp"
#include "x509/blob.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

constexpr std::array<std::uint8_t, 2> derNull{0x05, 0x00};

std::string_view oid(const CERT_PUBLIC_KEY_INFO& key) {
    return key.Algorithm.pszObjId == nullptr ? std::string_view{} : key.Algorithm.pszObjId;
}

bool sameAlgorithm(std::string_view a, std::string_view b) {
    const KeyAlgorithm* const kind = findKey(a);
    return a == b || (kind != nullptr && kind == findKey(b));
}

ByteView parameters(const CERT_PUBLIC_KEY_INFO& key) {
    const ByteView der = blobView(key.Algorithm.Parameters);
    return std::ranges::equal(der, derNull) ? ByteView{} : der;
}

bool sameParameters(ByteView a, ByteView b) {
    return a.empty() || b.empty() || std::ranges::equal(a, b);
}

/// Compares what the parameters mean, for keys that the service knows.
bool sameMeaning(const CERT_PUBLIC_KEY_INFO& a, const CERT_PUBLIC_KEY_INFO& b) {
    try {
        return samePublicKey(encodePublicKeyInfo(a), encodePublicKeyInfo(b));
    } catch (const ApiError&) {
        return false;
    }
}

} // namespace

bool samePublicKey(const CERT_PUBLIC_KEY_INFO& a, const CERT_PUBLIC_KEY_INFO& b) {
    return sameAlgorithm(oid(a), oid(b)) && std::ranges::equal(blobView(a.PublicKey), blobView(b.PublicKey)) &&
           (sameParameters(parameters(a), parameters(b)) || sameMeaning(a, b));
}

} // namespace klunortredi::csp
