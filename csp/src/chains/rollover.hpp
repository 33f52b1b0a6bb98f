#pragma once

/// Certificates by which an authority goes over to a new key: issuer and subject are one name, the
/// keys differ (RFC 4210, 4.4).

#include "core/ossl.hpp"

namespace klunortredi::csp {

/// Whether OpenSSL takes the certificate for a self-signed one, whoever signed it: issuer and subject are one name and
/// no authority key identifier names a different key.
bool looksSelfSigned(X509* certificate);

/// A copy with an authority key identifier that is not the certificate's own, so that OpenSSL goes on to its issuer.
/// The octets that its signature is checked against are those of the original. ApiError(ERROR_NOT_ENOUGH_MEMORY).
ossl::X509Ptr withForeignKeyIdentifier(X509* certificate);

} // namespace klunortredi::csp
