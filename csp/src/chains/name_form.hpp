#pragma once

/// The form of alternative names and of name constraints (RFC 5280, 4.2.1.6 and 4.2.1.10): names that readers take
/// apart in different ways are refused.

#include "capi/types.h"
#include "core/ossl.hpp"

#include <string_view>

namespace klunortredi::csp {

/// CERT_TRUST_... error bits: an empty list of alternative names, an empty name, a DNS name that is not made of
/// letters, digits and hyphens (a first label "*" is let pass), name constraints that are empty, stand in a certificate
/// that is not an authority's, or have a base that no name can have.
DWORD nameFormErrors(X509* certificate);

/// The octets of a string type of OpenSSL as text.
std::string_view nameText(const ASN1_STRING* string) noexcept;

/// Whether a mailbox is one local part, one "@" and one domain.
bool isMailbox(std::string_view address) noexcept;

/// Whether a URI has an authority without user information, and digits alone for a port (RFC 3986, 3.2). What stands
/// before an "@" is not the host, which readers overlook.
bool hasPlainAuthority(std::string_view uri) noexcept;

} // namespace klunortredi::csp
