#pragma once

#include "orvik/plugin/crypto/format/signature_request.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"

#include <vector>

namespace klunortredi::cli {

/// The signed attribute signing-certificate-v2 (RFC 5035, 3) that makes a CMS signature a CAdES-BES one (ETSI EN 319
/// 122-1, 5.2.2): it names `certificate` by its hash under the digest that the signature itself uses. Throws
/// SystemException and CryptoException when the service cannot make it.
orvik::plugin::crypto::format::SignatureRequest::Attribute
signingCertificateAttribute(const orvik::plugin::crypto::ICertificate& certificate);

/// Adds that attribute unless the user's own attributes name a signing certificate already, in either version.
void nameSigningCertificate(std::vector<orvik::plugin::crypto::format::SignatureRequest::Attribute>& attributes,
                            const orvik::plugin::crypto::ICertificate& certificate);

} // namespace klunortredi::cli
