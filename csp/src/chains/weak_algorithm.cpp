#include "chains/weak_algorithm.hpp"

#include "crypto/broken_key.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

/// NIDs of the digests that are broken. NID_md2 is known by number even where its code is not built.
constexpr std::array brokenDigests{NID_md2, NID_md4, NID_md5};

} // namespace

bool isBrokenSignature(const X509_ALGOR* algorithm) {
    const int signature = OBJ_obj2nid(algorithm->algorithm);
    int digest = NID_undef;
    OBJ_find_sigid_algs(signature, &digest, nullptr);
    if (signature == NID_rsassaPss && algorithm->parameter != nullptr &&
        algorithm->parameter->type == V_ASN1_SEQUENCE) {
        const std::unique_ptr<RSA_PSS_PARAMS, ossl::Deleter<RSA_PSS_PARAMS_free>> parameters(
            static_cast<RSA_PSS_PARAMS*>(
                ASN1_item_unpack(algorithm->parameter->value.sequence, ASN1_ITEM_rptr(RSA_PSS_PARAMS))));
        if (parameters && parameters->hashAlgorithm != nullptr) {
            digest = OBJ_obj2nid(parameters->hashAlgorithm->algorithm);
        }
    }
    return std::ranges::find(brokenDigests, digest) != brokenDigests.end();
}

bool hasBrokenSignature(const X509* certificate) {
    const X509_ALGOR* algorithm = nullptr;
    X509_get0_signature(nullptr, &algorithm, certificate);
    return isBrokenSignature(algorithm) || isBrokenSignature(X509_get0_tbs_sigalg(certificate));
}

bool hasBrokenSignature(const X509_CRL* crl) {
    const X509_ALGOR* algorithm = nullptr;
    X509_CRL_get0_signature(crl, nullptr, &algorithm);
    return isBrokenSignature(algorithm);
}

bool hasBrokenKey(const X509* certificate) {
    const EVP_PKEY* const key = X509_get0_pubkey(certificate);
    return key != nullptr && isBrokenKey(key);
}

} // namespace klunortredi::csp
