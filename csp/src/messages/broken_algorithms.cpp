#include "messages/broken_algorithms.hpp"

#include "core/error.hpp"

#include <openssl/evp.h>

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

constexpr int smallestRsaBits = 1024;

} // namespace

void refuseBrokenDigest(std::string_view oid) {
    if (std::ranges::find(brokenDigests, oid) != brokenDigests.end()) {
        fail(capi::NTE_BAD_ALGID);
    }
}

void refuseBrokenKey(const EVP_PKEY* key) {
    const int type = EVP_PKEY_get_base_id(key);
    if ((type == EVP_PKEY_RSA || type == EVP_PKEY_RSA_PSS) && EVP_PKEY_get_bits(key) < smallestRsaBits) {
        fail(capi::NTE_BAD_KEY);
    }
}

} // namespace klunortredi::csp
