#include "crypto/signature.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/engine.hpp"
#include "crypto/gost_params.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/public_key_info.hpp"
#include "crypto/rsa_public_key.hpp"

#include <openssl/rsa.h>

#include <algorithm>

namespace klunortredi::csp {

namespace {

/// The engine decodes points of any size and curves of either family under either OID: what it gets is checked first.
void checkGostKey(const KeyAlgorithm& algorithm, const spki::Parts& parts) {
    const GostParamSet* const set = gostParamSetOf(algorithm, parts.parameters);
    if (set == nullptr) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    const std::size_t pointSize = 2 * set->bits / 8;
    if (parts.key != der::octetString(ByteView(parts.key).last(std::min(pointSize, parts.key.size())))) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
}

bool suits(const KeyAlgorithm& key, const DigestAlgorithm& digest) {
    return !signatureOid(key, digest).empty();
}

/// A context that is ready for one operation on a digest value.
ossl::PkeyCtx operation(EVP_PKEY* key, const KeyAlgorithm& row, const DigestAlgorithm& algorithm,
                        int (*initialise)(EVP_PKEY_CTX*)) {
    ossl::PkeyCtx context(EVP_PKEY_CTX_new(key, row.gost ? gostEngine() : nullptr));
    if (!context || initialise(context.get()) != 1) {
        fail(capi::NTE_FAIL);
    }
    if (!row.gost && (EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) != 1 ||
                      EVP_PKEY_CTX_set_signature_md(context.get(), digestMethod(algorithm)) != 1)) {
        fail(capi::NTE_FAIL);
    }
    return context;
}

void usePss(EVP_PKEY_CTX* context, const DigestAlgorithm& algorithm) {
    if (EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PSS_PADDING) != 1 ||
        EVP_PKEY_CTX_set_rsa_mgf1_md(context, digestMethod(algorithm)) != 1 ||
        EVP_PKEY_CTX_set_rsa_pss_saltlen(context, RSA_PSS_SALTLEN_DIGEST) != 1) {
        fail(capi::NTE_FAIL);
    }
}

/// The key as OpenSSL or the engine decodes it; null when it is refused.
ossl::Pkey decodedKey(const KeyAlgorithm& algorithm, const spki::Parts& parts) {
    const Bytes der = spki::join(algorithm.oid, parts.parameters, parts.key);
    const unsigned char* next = der.data();
    return ossl::Pkey(d2i_PUBKEY(nullptr, &next, static_cast<long>(der.size())));
}

} // namespace

ossl::Pkey publicKeyFromInfo(ByteView subjectPublicKeyInfo) {
    const spki::Parts parts = spki::split(subjectPublicKeyInfo);
    const KeyAlgorithm* const algorithm = findKey(std::string_view(parts.oid));
    if (algorithm == nullptr) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    if (algorithm->gost) {
        checkGostKey(*algorithm, parts);
        gostEngine(); // the decoder looks for the algorithm among what the engine registered
    } else if (!parts.parameters.empty() && parts.parameters != der::null()) { // RFC 3279, 2.3.1
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    const ossl::ErrorMark mark;
    ossl::Pkey key = algorithm->pkeyType == EVP_PKEY_RSA ? rsaPublicKey(parts.key) : decodedKey(*algorithm, parts);
    if (!key || EVP_PKEY_get_base_id(key.get()) != algorithm->pkeyType) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    return key;
}

const KeyAlgorithm& keyAlgorithm(const EVP_PKEY* key) {
    const int type = EVP_PKEY_get_base_id(key);
    const auto rows = keyAlgorithms();
    const auto row = std::find_if(rows.begin(), rows.end(), [type](const auto& r) { return r.pkeyType == type; });
    if (row == rows.end()) {
        fail(capi::NTE_BAD_ALGID);
    }
    return *row;
}

Bytes signDigest(EVP_PKEY* key, const DigestAlgorithm& algorithm, ByteView digest, RsaScheme scheme) {
    const KeyAlgorithm& row = keyAlgorithm(key);
    if (!suits(row, algorithm)) {
        fail(capi::NTE_BAD_ALGID);
    }
    if (digest.size() != algorithm.size) {
        fail(capi::NTE_BAD_HASH);
    }
    const ossl::ErrorMark mark;
    const ossl::PkeyCtx context = operation(key, row, algorithm, EVP_PKEY_sign_init);
    if (!row.gost && scheme == RsaScheme::pss) {
        usePss(context.get(), algorithm);
    }
    Bytes signature(signatureSize(key));
    std::size_t size = signature.size();
    if (EVP_PKEY_sign(context.get(), signature.data(), &size, digest.data(), digest.size()) != 1 ||
        size != signature.size()) {
        fail(capi::NTE_FAIL);
    }
    return signature;
}

bool verifyDigest(EVP_PKEY* key, const DigestAlgorithm& algorithm, ByteView digest, ByteView signature) {
    const KeyAlgorithm& row = keyAlgorithm(key);
    // The engine takes a value with octets behind it for a signature.
    if (!suits(row, algorithm) || digest.size() != algorithm.size || signature.size() != signatureSize(key)) {
        return false;
    }
    const ossl::ErrorMark mark;
    const ossl::PkeyCtx context = operation(key, row, algorithm, EVP_PKEY_verify_init);
    return EVP_PKEY_verify(context.get(), signature.data(), signature.size(), digest.data(), digest.size()) == 1;
}

} // namespace klunortredi::csp
