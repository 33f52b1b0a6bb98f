#pragma once

/// Where a certificate says that its issuer, its status and its CRLs can be retrieved (RFC 5280, 4.2.1.13, 4.2.1.15 and
/// 4.2.2.1). Nothing here is trusted: an address is of whoever made the certificate.

#include "core/ossl.hpp"

#include <string>
#include <vector>

namespace klunortredi::csp {

/// Addresses with http or https, in the order of the certificate; at most `mostLocations` of a kind or a point, and as
/// many points.
inline constexpr std::size_t mostLocations = 4;

std::vector<std::string> issuerLocations(X509* certificate);
std::vector<std::string> ocspLocations(X509* certificate);
/// By distribution point, the addresses at which the same CRL lies; points of complete CRLs first, then of delta CRLs.
std::vector<std::vector<std::string>> crlLocations(X509* certificate);

} // namespace klunortredi::csp
