#pragma once

/// Enhanced key usage of a certificate: the extension (RFC 5280, 4.2.1.12) and the property of the same name.

#include "x509/certificate.hpp"

#include <optional>
#include <string>
#include <vector>

namespace klunortredi::csp {

inline constexpr const char* anyEnhancedKeyUsage = "2.5.29.37.0";

/// Sources of CertGetEnhancedKeyUsage.
inline constexpr DWORD extensionUsageOnly = 2; ///< CERT_FIND_EXT_ONLY_ENHKEY_USAGE_FLAG
inline constexpr DWORD propertyUsageOnly = 4;  ///< CERT_FIND_PROP_ONLY_ENHKEY_USAGE_FLAG

/// The OIDs that the sources agree on: with `flags` 0 those in both extension and property where both are there.
/// Nothing when no source restricts the usage, an empty list when they leave none. ApiError(CRYPT_E_ASN1_CORRUPT) for
/// a malformed source.
std::optional<std::vector<std::string>> enhancedKeyUsage(const Certificate& certificate, DWORD flags);

/// Hands a CERT_ENHKEY_USAGE out in one block, by the two-call protocol.
void deliverUsage(const std::vector<std::string>& oids, void* buffer, DWORD* size);

} // namespace klunortredi::csp
