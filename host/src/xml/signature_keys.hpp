#pragma once

/// The keys in a signature's KeyInfo.

#include "ossl/owners.hpp"

#include <libxml/tree.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <string>
#include <vector>

namespace orvik::plugin::xml::internal {

using KeyPtr = ssl::internal::Owned<EVP_PKEY, EVP_PKEY_free>;

/// A certificate with a key that OpenSSL reads.
struct ReadCertificate {
    std::string der;
    ssl::internal::Owned<X509, X509_free> certificate;
    EVP_PKEY* key = nullptr; ///< the certificate's; null when it is not read or of a kind that is not supported
};

/// DER of one certificate. The object has no certificate when the octets are not one.
ReadCertificate readCertificate(std::string der);

/// The certificates of the X509Data elements.
struct CarriedCertificates {
    std::vector<ReadCertificate> usable; ///< with their keys, in order, each once
    bool damaged = false;                ///< one is not a certificate
    bool unsupported = false;            ///< one has a key that is not read here
};

/// `keyInfo` may be null. Throws Refusal (unknown) when there are more than limits::certificatesPerSignature.
CarriedCertificates carriedCertificates(const xmlNode* keyInfo);

/// The bare keys: RSAKeyValue, DSAKeyValue and ECKeyValue (named curves) in KeyValue, and DEREncodedKeyValue.
/// `keyInfo` may be null. Throws Refusal as above.
std::vector<KeyPtr> bareKeys(const xmlNode* keyInfo);

} // namespace orvik::plugin::xml::internal
