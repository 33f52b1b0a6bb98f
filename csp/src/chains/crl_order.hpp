#pragma once

/// Which of several CRLs says more.

#include "core/ossl.hpp"

#include <compare>
#include <memory>

namespace klunortredi::csp {

/// Order of two CRL numbers (RFC 5280, 5.2.3): `less` when that of `left` is lower. Unordered unless both have one.
std::partial_ordering compareCrlNumbers(const X509_CRL* left, const X509_CRL* right);

/// The later thisUpdate first; of the same moment the greater number, a CRL without one last; then by their octets,
/// so that the order is not a folder's. A CRL whose thisUpdate does not decode is the oldest.
bool isNewerCrl(const std::shared_ptr<X509_CRL>& left, const std::shared_ptr<X509_CRL>& right);

} // namespace klunortredi::csp
