#pragma once

#include "orvik/plugin/crypto/format/signature_request.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"

namespace klunortredi::cli {

/// The signed attribute signing-certificate-v2 (RFC 5035, 3) that makes a CMS signature a CAdES-BES one (ETSI EN 319
/// 122-1, 5.2.2): it names `certificate` by its hash under the digest that the signature itself uses. Throws
/// SystemException and CryptoException when the service cannot make it.
orvik::plugin::crypto::format::SignatureRequest::Attribute
signingCertificateAttribute(const orvik::plugin::crypto::ICertificate& certificate);

/// Whether the attribute names a signing certificate, in either version.
bool isSigningCertificate(const orvik::plugin::crypto::format::SignatureRequest::Attribute& attribute);

} // namespace klunortredi::cli
