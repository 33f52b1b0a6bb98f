#include "signature_verdict.hpp"

#include "capi/constants.hpp"

#include <algorithm>
#include <array>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

/// The service's refusals that mean: the signature was computed, or its form judged, and it does not hold.
constexpr std::array<unsigned, 8> refusals{
    capi::NTE_BAD_SIGNATURE,           // the value is not the key's signature
    capi::CRYPT_E_HASH_VALUE,          // other content
    capi::CRYPT_E_AUTH_ATTR_MISSING,   // the signed attributes break the rules
    capi::CRYPT_E_UNEXPECTED_MSG_TYPE, // other content type
    capi::CRYPT_E_NO_MATCH,            // the signing-certificate attribute names another certificate
    capi::CRYPT_E_BAD_ENCODE,          // the signing-certificate attribute is malformed
    capi::NTE_BAD_ALGID,               // broken digest
    capi::NTE_BAD_KEY,                 // broken key size
};

} // namespace
} // namespace internal

SignatureVerdict verdictOf(unsigned code) {
    if (code == 0) {
        return SignatureVerdict::valid;
    }
    return std::ranges::find(internal::refusals, code) != internal::refusals.end() ? SignatureVerdict::invalid
                                                                                   : SignatureVerdict::unknown;
}

} // namespace orvik::plugin::wincrypt::tools
