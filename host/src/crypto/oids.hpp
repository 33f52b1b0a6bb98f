#pragma once

/// The dotted OIDs that the framework's tables speak of.

namespace orvik::plugin::crypto::oids {

// Keys: RFC 9215 and RFC 4491 (the agreement OIDs name the same keys in old containers), RFC 8017.
inline constexpr const char* gost2012_256 = "1.2.643.7.1.1.1.1";
inline constexpr const char* gost2012_512 = "1.2.643.7.1.1.1.2";
inline constexpr const char* gost2001 = "1.2.643.2.2.19";
inline constexpr const char* gost2012_256Agreement = "1.2.643.7.1.1.6.1";
inline constexpr const char* gost2012_512Agreement = "1.2.643.7.1.1.6.2";
inline constexpr const char* gost2001Agreement = "1.2.643.2.2.98";
inline constexpr const char* rsa = "1.2.840.113549.1.1.1";
inline constexpr const char* ecPublicKey = "1.2.840.10045.2.1";

// Hashes.
inline constexpr const char* hashGost2012_256 = "1.2.643.7.1.1.2.2";
inline constexpr const char* hashGost2012_512 = "1.2.643.7.1.1.2.3";
inline constexpr const char* hashGost94 = "1.2.643.2.2.9";
inline constexpr const char* sha1 = "1.3.14.3.2.26";
inline constexpr const char* sha256 = "2.16.840.1.101.3.4.2.1";
inline constexpr const char* sha384 = "2.16.840.1.101.3.4.2.2";
inline constexpr const char* sha512 = "2.16.840.1.101.3.4.2.3";

// Signatures with their hash.
inline constexpr const char* signGost2012_256 = "1.2.643.7.1.1.3.2";
inline constexpr const char* signGost2012_512 = "1.2.643.7.1.1.3.3";
inline constexpr const char* signGost2001 = "1.2.643.2.2.3";
inline constexpr const char* signRsaSha256 = "1.2.840.113549.1.1.11";

// Key parameter sets: CryptoPro's (RFC 4357), then TC26's (RFC 7836, RFC 9215).
inline constexpr const char* cryptoProA = "1.2.643.2.2.35.1";
inline constexpr const char* cryptoProB = "1.2.643.2.2.35.2";
inline constexpr const char* cryptoProC = "1.2.643.2.2.35.3";
inline constexpr const char* cryptoProXchA = "1.2.643.2.2.36.0";
inline constexpr const char* cryptoProXchB = "1.2.643.2.2.36.1";
inline constexpr const char* tc26_256A = "1.2.643.7.1.2.1.1.1";
inline constexpr const char* tc26_256B = "1.2.643.7.1.2.1.1.2";
inline constexpr const char* tc26_256C = "1.2.643.7.1.2.1.1.3";
inline constexpr const char* tc26_256D = "1.2.643.7.1.2.1.1.4";
inline constexpr const char* tc26_512A = "1.2.643.7.1.2.1.2.1";
inline constexpr const char* tc26_512B = "1.2.643.7.1.2.1.2.2";
inline constexpr const char* tc26_512C = "1.2.643.7.1.2.1.2.3";

} // namespace orvik::plugin::crypto::oids
