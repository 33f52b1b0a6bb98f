#pragma once

/// What is weak about a certificate, by the table of weak algorithms.

#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/weak_algorithms.hpp"

#include <vector>

namespace klunortredi::cli {

/// Bits of an RSA key's modulus; 0 for keys of other algorithms and for one that cannot be read.
unsigned rsaBits(const orvik::plugin::crypto::ICertificate& certificate);

/// What is weak at that time about the certificate's key and, unless it is a root whose signature nobody relies on,
/// about the digest that its issuer signed.
std::vector<orvik::plugin::crypto::Weakness> weaknessesOf(const orvik::plugin::crypto::ICertificate& certificate,
                                                          bool signatureMatters, const boost::posix_time::ptime& time);

} // namespace klunortredi::cli
