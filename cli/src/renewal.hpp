#pragma once

/// Requests for a key that is there.

#include "certificates.hpp"
#include "installed.hpp"

#include "orvik/plugin/crypto/i_csr_creator.hpp"

namespace klunortredi::cli {

/// The certificate for the container's key: the one in the container, else one of store my; null when there is none.
CertificatePtr certificateFor(const Container& container);

/// Has the request name what the certificate names: its subject octet by octet and, where `params` ask for nothing
/// else, its key usage, extended key usage, alternative names, policies and identification kind.
void keepNames(orvik::plugin::crypto::CsrCreatorParams& params, const CertificatePtr& certificate);

} // namespace klunortredi::cli
