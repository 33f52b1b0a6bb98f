#pragma once

/// A question about one chain, put to the entry points with everything it needs in memory: issuers and CRLs lie in the
/// store of a certificates-only message.

#include "service.hpp"

#include <ctime>
#include <string>
#include <vector>

namespace chain_case {

struct Question {
    csp::Bytes target;
    std::vector<csp::Bytes> anchors; ///< the only trusted ones
    std::vector<csp::Bytes> issuers;
    std::vector<csp::Bytes> crls;
    std::time_t time = 0;              ///< 0: now
    DWORD flags = 0;                   ///< CERT_CHAIN_REVOCATION_CHECK_...
    std::string usage;                 ///< OID of an extended key usage; empty: any
    std::vector<std::string> policies; ///< OIDs of which one is enough; empty: none is asked for
};

/// Bits that no chain has: the target is not a certificate, or the call failed.
inline constexpr DWORD notJudged = ~DWORD{0};

struct Answer {
    DWORD errors = notJudged; ///< CERT_TRUST_... of the whole chain
    DWORD code = 0;           ///< last error when not judged
    std::vector<DWORD> elements;
};

/// Asks CertGetCertificateChain.
Answer ask(const Question& question);

/// A store handle with these certificates and CRLs; what does not decode is left out.
StoreHandle storeOf(const std::vector<csp::Bytes>& certificates, const std::vector<csp::Bytes>& crls);

} // namespace chain_case
