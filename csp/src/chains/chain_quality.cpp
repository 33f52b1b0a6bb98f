#include "chains/chain_quality.hpp"

#include "capi/constants.hpp"

#include <array>

namespace klunortredi::csp {

namespace {

using namespace capi;

/// From the gravest. First where the chain ends: the errors of a chain that leads to an anchor are what the user can do
/// something about.
constexpr std::array gravity{
    CERT_TRUST_IS_PARTIAL_CHAIN | CERT_TRUST_IS_CYCLIC,
    CERT_TRUST_IS_UNTRUSTED_ROOT,
    CERT_TRUST_IS_NOT_SIGNATURE_VALID,
    CERT_TRUST_IS_EXPLICIT_DISTRUST,
    CERT_TRUST_IS_REVOKED,
    CERT_TRUST_INVALID_BASIC_CONSTRAINTS,
    CERT_TRUST_INVALID_NAME_CONSTRAINTS | CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT |
        CERT_TRUST_HAS_NOT_DEFINED_NAME_CONSTRAINT | CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT |
        CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT,
    CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT,
    CERT_TRUST_INVALID_EXTENSION,
    CERT_TRUST_INVALID_POLICY_CONSTRAINTS | CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY,
    CERT_TRUST_IS_NOT_VALID_FOR_USAGE,
    CERT_TRUST_IS_NOT_TIME_VALID,
    CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_IS_OFFLINE_REVOCATION,
    ~CERT_TRUST_NO_ERROR,
};

} // namespace

bool isBetterChain(DWORD left, DWORD right) noexcept {
    for (const DWORD bits : gravity) {
        const bool inLeft = (left & bits) != 0;
        const bool inRight = (right & bits) != 0;
        if (inLeft != inRight) {
            return inRight;
        }
    }
    return false;
}

} // namespace klunortredi::csp
