#pragma once

/// Constants of the framework that are no one component's.

namespace orvik::plugin::constant {

inline constexpr const char* kv_separator = "=";
inline constexpr const char* value_separator = ";";
inline constexpr const char* p7sExtension = ".p7s";
inline constexpr const char* sigExtension = ".sig";
inline constexpr const char* xmldsigExtension = ".sgn";

} // namespace orvik::plugin::constant

namespace orvik::plugin::oid {

inline constexpr const char* contentType = "1.2.840.113549.1.9.3";
inline constexpr const char* messageDigest = "1.2.840.113549.1.9.4";
inline constexpr const char* signingTime = "1.2.840.113549.1.9.5";

} // namespace orvik::plugin::oid
