#pragma once

/// Searching stores.

#include "stores/store.hpp"

namespace klunortredi::csp {

/// What a CERT_FIND_... type with its parameter asks for. The parameter must live as long as the criterion.
/// ApiError(ERROR_INVALID_PARAMETER) for an unknown type or a missing parameter.
Criterion criterion(DWORD findType, const void* parameter);

/// Meets the certificate that a CERT_INFO names: by issuer and serial number, or by the key identifier that
/// `keyIdentifierOf` finds in it.
Criterion subjectCriterion(const CERT_INFO& id);

/// A signer may be named by key identifier only (RFC 5652, 5.3). In a CERT_INFO that is an issuer of one attribute,
/// 1.3.6.1.4.1.311.10.7.1, whose value is an OCTET STRING with the identifier, and a serial number of one zero octet.
/// Gives the identifier; empty when the CERT_INFO is not of that form.
ByteView keyIdentifierOf(const CERT_INFO& id);

} // namespace klunortredi::csp
