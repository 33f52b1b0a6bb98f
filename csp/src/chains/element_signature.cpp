#include "chains/element_signature.hpp"

#include "crypto/algorithms.hpp"
#include "crypto/key_pair.hpp"

#include <set>

namespace klunortredi::csp {

bool hasExactLength(const ASN1_BIT_STRING* signature, const X509* issuer) {
    const EVP_PKEY* const key = X509_get0_pubkey(issuer);
    static const std::set<int> gostKeys{NID_id_GostR3410_2001, NID_id_GostR3410_2012_256, NID_id_GostR3410_2012_512};
    return key == nullptr || !gostKeys.contains(EVP_PKEY_get_id(key)) ||
           static_cast<std::size_t>(ASN1_STRING_length(signature)) == signatureSize(key);
}

bool verifiesSignature(X509* certificate, X509* issuer) {
    const ossl::ErrorMark mark;
    EVP_PKEY* const key = X509_get0_pubkey(issuer);
    const ASN1_BIT_STRING* signature = nullptr;
    X509_get0_signature(&signature, nullptr, certificate);
    return key != nullptr && hasExactLength(signature, issuer) && X509_verify(certificate, key) == 1;
}

bool verifiesSignature(X509_CRL* crl, X509* issuer) {
    const ossl::ErrorMark mark;
    EVP_PKEY* const key = X509_get0_pubkey(issuer);
    const ASN1_BIT_STRING* signature = nullptr;
    X509_CRL_get0_signature(crl, &signature, nullptr);
    return key != nullptr && hasExactLength(signature, issuer) && X509_CRL_verify(crl, key) == 1;
}

} // namespace klunortredi::csp
