#pragma once

/// Chains whose status is asked for over the network.

#include "chain_fixture.hpp"

class OnlineChainTest : public ChainTest {
protected:
    static constexpr DWORD end = capi::CERT_CHAIN_REVOCATION_CHECK_END_CERT;
    static constexpr DWORD soft = capi::CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT;
    static constexpr DWORD revoked = capi::CERT_TRUST_IS_REVOKED;
    static constexpr DWORD unknown =
        capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN | capi::CERT_TRUST_IS_OFFLINE_REVOCATION;
};
