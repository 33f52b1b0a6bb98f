#pragma once

/// The CRLs that concern a path. A CRL counts only with a valid signature of its issuer, so that a forged one, however
/// new, never takes the place of a true one.

#include "chains/path_judgement.hpp"

namespace klunortredi::csp {

/// CRLs of the issuers in the path and of those that its distribution points name, with the certificates outside of
/// the path that sign them.
PathCrls crlsOf(const Path& path, ChainSources& sources);

/// What the applied CRLs say of a certificate whose bits are `errors`; nothing when there are none.
std::optional<ElementRevocation> revocationOf(const AppliedCrls& applied, X509* certificate, DWORD errors,
                                              std::time_t time);

/// What an answer says that proves a status at `time`.
ElementRevocation revocationOf(const OcspAnswer& answer, std::time_t time);

} // namespace klunortredi::csp
