#pragma once

/// Which attributes may stand where, and how often (RFC 5652, 11; RFC 5035, 3 and 5.4).

#include "messages/cms_types.hpp"

#include <string_view>
#include <vector>

namespace klunortredi::csp {

/// Refuses an attribute of these documents among the wrong ones, or twice where it may stand once, or with several
/// values where it has one. ApiError(CRYPT_E_AUTH_ATTR_MISSING): what must be there exactly once is not.
void checkAttributeRules(const std::vector<Attribute>& signedOnes, const std::vector<Attribute>& unsignedOnes);

/// The value of the attribute that must be there exactly once with one value; ApiError(CRYPT_E_AUTH_ATTR_MISSING).
const Bytes& onlyValue(const std::vector<Attribute>& attributes, std::string_view oid);

} // namespace klunortredi::csp
