#pragma once

/// The signed attributes that name the signer's certificate: signing-certificate (RFC 2634, 5.4) and
/// signing-certificate-v2 (RFC 5035).
///
/// The signer identifier of a SignerInfo is not signed: without one of these attributes it can be moved to another
/// certificate of the same key.

#include "messages/cms_types.hpp"

#include <vector>

namespace klunortredi::csp {

/// Whether there is one of them.
bool namesSigningCertificate(const std::vector<Attribute>& signedAttributes);

/// Returns when each of these attributes that is there is well-formed and its first ESSCertID names `certificate` (a
/// whole DER certificate): its hash and, where given, its issuer and serial number. Throws ApiError:
///
/// CRYPT_E_AUTH_ATTR_MISSING  repeated, or not with exactly one value
/// CRYPT_E_BAD_ENCODE         malformed
/// CRYPT_E_NO_MATCH           another certificate is named
/// CRYPT_E_UNKNOWN_ALGO       unknown hash algorithm; NTE_BAD_ALGID for a broken one
void checkSigningCertificate(const std::vector<Attribute>& signedAttributes, ByteView certificate);

/// Judges the form alone, when the certificate is not at hand; errors as above without CRYPT_E_NO_MATCH.
void checkSigningCertificateForm(const std::vector<Attribute>& signedAttributes);

} // namespace klunortredi::csp
