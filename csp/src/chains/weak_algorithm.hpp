#pragma once

/// Algorithms so weak that a signature made with them proves nothing.

#include "core/ossl.hpp"

namespace klunortredi::csp {

/// Whether the signature, or one of this algorithm, is made over MD2, MD4 or MD5 (RFC 6149, RFC 6150, RFC 6151):
/// collisions are made in seconds, and a certificate with a chosen name was forged with one.
bool isBrokenSignature(const X509_ALGOR* algorithm);
bool hasBrokenSignature(const X509* certificate);
bool hasBrokenSignature(const X509_CRL* crl);

/// Whether the key is broken (crypto/broken_key.hpp).
bool hasBrokenKey(const X509* certificate);

} // namespace klunortredi::csp
