#include "chains/chain_policy.hpp"

#include "capi/constants.hpp"

#include <array>

namespace klunortredi::csp {

namespace {

using namespace capi;

struct Verdict {
    DWORD bit;
    DWORD code;
};

/// From the gravest: what says that the chain is forged, taken back or unknown, before what says that it is unfit.
constexpr std::array<Verdict, 21> verdicts{{
    {CERT_TRUST_IS_NOT_SIGNATURE_VALID, TRUST_E_CERT_SIGNATURE},
    {CERT_TRUST_IS_EXPLICIT_DISTRUST, TRUST_E_EXPLICIT_DISTRUST},
    {CERT_TRUST_IS_REVOKED, CRYPT_E_REVOKED},
    {CERT_TRUST_IS_UNTRUSTED_ROOT, CERT_E_UNTRUSTEDROOT},
    {CERT_TRUST_IS_PARTIAL_CHAIN, CERT_E_CHAINING},
    {CERT_TRUST_IS_CYCLIC, CERT_E_CHAINING},
    {CERT_TRUST_IS_NOT_TIME_VALID, CERT_E_EXPIRED},
    {CERT_TRUST_REVOCATION_STATUS_UNKNOWN, CRYPT_E_NO_REVOCATION_CHECK},
    {CERT_TRUST_IS_OFFLINE_REVOCATION, CRYPT_E_REVOCATION_OFFLINE},
    {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, CERT_E_WRONG_USAGE},
    {CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT, CERT_E_CRITICAL},
    {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, TRUST_E_BASIC_CONSTRAINTS},
    {CERT_TRUST_INVALID_NAME_CONSTRAINTS, CERT_E_INVALID_NAME},
    {CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT, CERT_E_INVALID_NAME},
    {CERT_TRUST_HAS_NOT_DEFINED_NAME_CONSTRAINT, CERT_E_INVALID_NAME},
    {CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT, CERT_E_INVALID_NAME},
    {CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT, CERT_E_INVALID_NAME},
    {CERT_TRUST_INVALID_POLICY_CONSTRAINTS, CERT_E_INVALID_POLICY},
    {CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY, CERT_E_INVALID_POLICY},
    {CERT_TRUST_INVALID_EXTENSION, CERT_E_CRITICAL},
    // any other bit: no bit may pass for success
    {~CERT_TRUST_NO_ERROR, CERT_E_CHAINING},
}};

struct Ignored {
    DWORD flag;
    DWORD bits;
};

/// CERT_CHAIN_POLICY_IGNORE_... and CERT_CHAIN_POLICY_ALLOW_UNKNOWN_CA_FLAG; the four that ignore unknown revocation
/// tell elements apart and stand in `revocationFlag`.
constexpr std::array<Ignored, 9> ignorable{{
    {0x00000001, CERT_TRUST_IS_NOT_TIME_VALID},
    {0x00000002, CERT_TRUST_CTL_IS_NOT_TIME_VALID},
    {0x00000008, CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
    {0x00000010, CERT_TRUST_IS_UNTRUSTED_ROOT | CERT_TRUST_IS_PARTIAL_CHAIN},
    {0x00000020, CERT_TRUST_IS_NOT_VALID_FOR_USAGE},
    {0x00000040, CERT_TRUST_INVALID_NAME_CONSTRAINTS | CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT |
                     CERT_TRUST_HAS_NOT_DEFINED_NAME_CONSTRAINT | CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT |
                     CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT},
    {0x00000080, CERT_TRUST_INVALID_POLICY_CONSTRAINTS | CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY},
    {0x00002000, CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT},
    {0x08000000, CERT_TRUST_HAS_WEAK_SIGNATURE},
}};

DWORD ignoredBits(DWORD flags) {
    DWORD bits = 0;
    for (const Ignored& row : ignorable) {
        bits |= (flags & row.flag) != 0 ? row.bits : 0;
    }
    return bits;
}

DWORD revocationFlag(DWORD index, DWORD count) {
    constexpr DWORD endUnknown = 0x00000100;
    constexpr DWORD caUnknown = 0x00000400;
    constexpr DWORD rootUnknown = 0x00000800;
    if (index == 0) {
        return endUnknown;
    }
    return index + 1 == count ? rootUnknown : caUnknown;
}

/// The bits of an element, without what the caller wants ignored.
DWORD countedBits(const CERT_SIMPLE_CHAIN& chain, DWORD index, DWORD flags) {
    DWORD ignored = ignoredBits(flags);
    if ((flags & revocationFlag(index, chain.cElement)) != 0) {
        ignored |= CERT_TRUST_REVOCATION_STATUS_UNKNOWN | CERT_TRUST_IS_OFFLINE_REVOCATION;
    }
    return chain.rgpElement[index]->TrustStatus.dwErrorStatus & ~ignored;
}

} // namespace

void judgeBasePolicy(const CERT_CHAIN_CONTEXT& chain, DWORD flags, CERT_CHAIN_POLICY_STATUS& status) {
    const CERT_SIMPLE_CHAIN& simple = *chain.rgpChain[0];
    DWORD ofElements = 0;
    for (DWORD i = 0; i < simple.cElement; ++i) {
        ofElements |= simple.rgpElement[i]->TrustStatus.dwErrorStatus;
    }
    const DWORD ofChain = simple.TrustStatus.dwErrorStatus & ~ofElements & ~ignoredBits(flags);
    status.dwError = ERROR_SUCCESS;
    status.lChainIndex = -1;
    status.lElementIndex = -1;
    for (const Verdict& verdict : verdicts) {
        for (DWORD i = 0; i < simple.cElement; ++i) {
            if ((countedBits(simple, i, flags) & verdict.bit) != 0) {
                status.dwError = verdict.code;
                status.lChainIndex = 0;
                status.lElementIndex = static_cast<LONG>(i);
                return;
            }
        }
        if ((ofChain & verdict.bit) != 0) {
            status.dwError = verdict.code;
            status.lChainIndex = 0;
            return;
        }
    }
}

} // namespace klunortredi::csp
