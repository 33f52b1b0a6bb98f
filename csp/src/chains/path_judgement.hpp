#pragma once

/// The verdict of OpenSSL on one path: exactly these certificates, this anchor and these CRLs (RFC 5280, section 6.1).

#include "chains/chain_builder.hpp"
#include "chains/findings.hpp"
#include "chains/path_search.hpp"

#include <set>

namespace klunortredi::csp {

/// The CRLs that one certificate of a path was held against.
struct AppliedCrls {
    std::shared_ptr<X509_CRL> base;
    std::shared_ptr<X509_CRL> delta;
};

struct PathJudgement {
    Findings findings;
    std::vector<AppliedCrls> crls; ///< by element; empty where revocation was not looked at
};

/// CRLs, and certificates outside of the path that may sign them.
struct PathCrls {
    std::vector<std::shared_ptr<X509_CRL>> lists;
    std::vector<const Candidate*> issuers;
    /// Those of the issuer of an anchor that is not self-signed, which is not in the path: by the key that signed the
    /// anchor's certificate. The newest first.
    std::vector<std::shared_ptr<X509_CRL>> ofAnchor;
    /// Elements, by index, whose issuer has CRLs that a limit kept from being looked at: any of them may revoke.
    std::set<std::size_t> unjudged;
};

PathJudgement judgePath(const Path& path, const PathCrls& crls, const ChainRequest& request);

} // namespace klunortredi::csp
