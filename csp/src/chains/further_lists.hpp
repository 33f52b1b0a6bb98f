#pragma once

/// CRLs that OpenSSL leaves out, held against a path.

#include "chains/path_judgement.hpp"

#include <ctime>

namespace klunortredi::csp {

/// Adds what further lists revoke at `time`. OpenSSL applies a delta CRL only where a freshestCRL extension announces
/// it, and of complete CRLs one. Counted here: every delta of the certificate's issuer that is later than the applied
/// base, or that has no base at hand (RFC 5280, 5.2.4), the newest that lists the certificate first; complete CRLs of
/// the same issuer, scope and moment whose number is not lower; and entries of a complete CRL with the reason
/// removeFromCRL, which only a delta may have (5.3.1): they revoke.
void applyFurtherLists(const Path& path, const PathCrls& crls, std::time_t time, PathJudgement& judgement);

} // namespace klunortredi::csp
