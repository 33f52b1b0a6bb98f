#include "signature_verdict.hpp"

#include "capi/constants.hpp"
#include "orvik/plugin/path_registry.hpp"

#include <boost/filesystem/operations.hpp>

#include <algorithm>
#include <array>
#include <string>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

/// What every service means by these: the signature was computed, and it does not hold.
constexpr std::array<unsigned, 2> clearRefusals{
    capi::NTE_BAD_SIGNATURE,  // the value is not the key's signature
    capi::CRYPT_E_HASH_VALUE, // other content
};

/// What the embedded service means by these: the form of the signature was judged, and it does not hold. Another
/// service may say so when it cannot judge: its provider does not offer the algorithm, or does not take the key.
constexpr std::array<unsigned, 6> refusalsOfTheEmbedded{
    capi::CRYPT_E_AUTH_ATTR_MISSING,   // the signed attributes break the rules
    capi::CRYPT_E_UNEXPECTED_MSG_TYPE, // other content type
    capi::CRYPT_E_NO_MATCH,            // the signing-certificate attribute names another certificate
    capi::CRYPT_E_BAD_ENCODE,          // the signing-certificate attribute is malformed
    capi::NTE_BAD_ALGID,               // broken digest
    capi::NTE_BAD_KEY,                 // broken key size
};

template <std::size_t N>
bool contains(const std::array<unsigned, N>& codes, unsigned code) {
    return std::ranges::find(codes, code) != codes.end();
}

/// Whether the process works with the embedded service.
bool usesEmbeddedService() {
    boost::system::error_code ignored;
    return !boost::filesystem::exists(PathRegistry::vipNetResourceFile(), ignored) &&
           PathRegistry::cryptoProResourceFile().filename().string().rfind("libklunortredi_csp.", 0) == 0;
}

} // namespace
} // namespace internal

SignatureVerdict verdictOf(unsigned code) {
    if (code == 0) {
        return SignatureVerdict::valid;
    }
    const bool refused = internal::contains(internal::clearRefusals, code) ||
                         (internal::contains(internal::refusalsOfTheEmbedded, code) && internal::usesEmbeddedService());
    return refused ? SignatureVerdict::invalid : SignatureVerdict::unknown;
}

} // namespace orvik::plugin::wincrypt::tools
