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

/// A certificate in KeyInfo.
struct CarriedCertificate {
    std::string der;
    ssl::internal::Owned<X509, X509_free> certificate;
    EVP_PKEY* key = nullptr; ///< the certificate's
};

/// The certificates of the X509Data elements, in order, each once; what OpenSSL does not read is left out. `keyInfo`
/// may be null. Throws Refusal (unknown) when there are more than limits::certificatesPerSignature.
std::vector<CarriedCertificate> carriedCertificates(const xmlNode* keyInfo);

/// The bare keys: RSAKeyValue, DSAKeyValue and ECKeyValue (named curves) in KeyValue, and DEREncodedKeyValue.
/// `keyInfo` may be null. Throws Refusal as above.
std::vector<KeyPtr> bareKeys(const xmlNode* keyInfo);

} // namespace orvik::plugin::xml::internal
