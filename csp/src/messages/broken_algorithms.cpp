#include "messages/broken_algorithms.hpp"

#include "core/error.hpp"
#include "crypto/broken_key.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

constexpr std::array<std::string_view, 6> brokenDigests{
    "1.2.840.113549.2.2",   // md2
    "1.2.840.113549.2.4",   // md4
    "1.2.840.113549.2.5",   // md5
    "1.2.840.113549.1.1.2", // md2WithRSAEncryption
    "1.2.840.113549.1.1.3", // md4WithRSAEncryption
    "1.2.840.113549.1.1.4", // md5WithRSAEncryption
};

} // namespace

void refuseBrokenDigest(std::string_view oid) {
    if (std::ranges::find(brokenDigests, oid) != brokenDigests.end()) {
        fail(capi::NTE_BAD_ALGID);
    }
}

void refuseBrokenKey(const EVP_PKEY* key) {
    if (isBrokenKey(key)) {
        fail(capi::NTE_BAD_KEY);
    }
    if (hasExplicitCurve(key)) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
}

} // namespace klunortredi::csp
