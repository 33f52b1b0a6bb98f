#pragma once

/// Where the certificate of a time-stamp authority is looked for when its token does not carry it.

#include "certificates.hpp"

#include <string>
#include <vector>

namespace klunortredi::cli {

/// The certificates `given` by the user (DER), those of the stores ca, addressbook, my and root, and those `inMessage`
/// (DER), each once and in this order: what a message brings does not crowd out the others. None is trusted for
/// standing there. Throws what `storeCertificates` and `certificateFromDer` throw.
std::vector<CertificatePtr> authorityCandidates(const std::vector<std::string>& given,
                                                const std::vector<std::string>& inMessage = {});

} // namespace klunortredi::cli
