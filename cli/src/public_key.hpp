#pragma once

/// What a certificate's public key is, read from its octets.

#include "orvik/plugin/crypto/i_certificate.hpp"

#include <string>

namespace klunortredi::cli {

/// Octets that are equal for two certificates whenever who has the private key of one has that of the other: the
/// modulus of an RSA key, whatever its exponent; the x coordinate of a point on a curve, which a key and its negative
/// share, however the point is written (SEC 1, 2.3.3; RFC 9215, 4.3); of any other key all octets.
std::string keyIdentity(const orvik::plugin::crypto::ICertificate& certificate);

/// Bits of the modulus of an RSA key; of a point on a curve (id-ecPublicKey) those of a coordinate, in whole octets; 0
/// for other keys and what cannot be read.
unsigned keyBits(const orvik::plugin::crypto::ICertificate& certificate);

} // namespace klunortredi::cli
