#pragma once

/// CRLs that OpenSSL leaves out, held against a path.

#include "chains/path_judgement.hpp"

#include <ctime>

namespace klunortredi::csp {

/// Adds what the further lists of each applied base CRL revoke at `time`. OpenSSL applies a delta CRL only where a
/// freshestCRL extension announces it, and of complete CRLs one. Counted here: every delta of the base (RFC 5280,
/// 5.2.4), the newest that lists the certificate first, and complete CRLs of the same issuer, scope and moment whose
/// number is not lower.
void applyFurtherLists(const Path& path, const PathCrls& crls, std::time_t time, PathJudgement& judgement);

} // namespace klunortredi::csp
