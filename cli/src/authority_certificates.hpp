#pragma once

/// Where the certificate of a time-stamp authority is looked for when its token does not carry it.

#include "certificates.hpp"

#include <string>
#include <vector>

namespace klunortredi::cli {

/// The certificates `given` (DER) and those of the stores ca, addressbook, my and root, each once. None is trusted for
/// standing there. Throws what `storeCertificates` and `certificateFromDer` throw.
std::vector<CertificatePtr> authorityCandidates(const std::vector<std::string>& given);

} // namespace klunortredi::cli
