#pragma once

/// Signatures of certificates and CRLs, one by one.

#include "core/ossl.hpp"

namespace klunortredi::csp {

/// Whether the signature value has the length that the issuer's key makes: the GOST engine takes one with octets after
/// it. True for keys of other kinds, whose lengths OpenSSL checks.
bool hasExactLength(const ASN1_BIT_STRING* signature, const X509* issuer);

/// Whether the certificate carries a signature of the issuer's key, of exactly its length.
bool verifiesSignature(X509* certificate, X509* issuer);
bool verifiesSignature(X509_CRL* crl, X509* issuer);

} // namespace klunortredi::csp
