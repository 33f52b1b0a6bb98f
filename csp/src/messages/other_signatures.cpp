#include "messages/other_signatures.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "core/ossl.hpp"
#include "crypto/engine.hpp"
#include "messages/broken_algorithms.hpp"
#include "x509/x509_der.hpp"

#include <openssl/rsa.h>

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

constexpr std::string_view ecPublicKey = "1.2.840.10045.2.1";

struct EcdsaRow {
    std::string_view oid;
    std::string_view digestOid;
};

constexpr std::array ecdsaRows{
    EcdsaRow{"1.2.840.10045.4.1", "1.3.14.3.2.26"},
    EcdsaRow{"1.2.840.10045.4.3.1", "2.16.840.1.101.3.4.2.4"},
    EcdsaRow{"1.2.840.10045.4.3.2", "2.16.840.1.101.3.4.2.1"},
    EcdsaRow{"1.2.840.10045.4.3.3", "2.16.840.1.101.3.4.2.2"},
    EcdsaRow{"1.2.840.10045.4.3.4", "2.16.840.1.101.3.4.2.3"},
};

using PssParameters = std::unique_ptr<RSA_PSS_PARAMS, ossl::Deleter<RSA_PSS_PARAMS_free>>;

/// The digest that an AlgorithmIdentifier of the parameters names; SHA-1 when absent (RFC 4055, 3.1).
const DigestAlgorithm* pssDigest(const X509_ALGOR* algorithm) {
    if (algorithm == nullptr) {
        return findDigest(capi::CALG_SHA1);
    }
    const ASN1_OBJECT* name = nullptr;
    X509_ALGOR_get0(&name, nullptr, nullptr, algorithm);
    return findDigest(ossl::oidText(name));
}

/// The digest of mask generation function 1, the only one there is; null when another is named.
const DigestAlgorithm* maskDigest(const X509_ALGOR* algorithm) {
    if (algorithm == nullptr) {
        return pssDigest(nullptr);
    }
    const ASN1_OBJECT* name = nullptr;
    int type = 0;
    const void* value = nullptr;
    X509_ALGOR_get0(&name, &type, &value, algorithm);
    if (OBJ_obj2nid(name) != NID_mgf1 || type != V_ASN1_SEQUENCE) {
        return nullptr;
    }
    using Algorithm = std::unique_ptr<X509_ALGOR, ossl::Deleter<X509_ALGOR_free>>;
    const auto hash = ossl::fromDer<Algorithm>(d2i_X509_ALGOR, ossl::octets(static_cast<const ASN1_STRING*>(value)));
    return hash ? pssDigest(hash.get()) : nullptr;
}

/// Sets `context` up as the parameters say; false when they are malformed or speak of another digest.
bool configurePss(EVP_PKEY_CTX* context, ByteView der, const DigestAlgorithm& digest) {
    const auto parameters = ossl::fromDer<PssParameters>(d2i_RSA_PSS_PARAMS, der);
    if (!parameters || pssDigest(parameters->hashAlgorithm) != &digest) {
        return false;
    }
    constexpr long trailerFieldBc = 1;
    const bool trailer =
        parameters->trailerField == nullptr || ASN1_INTEGER_get(parameters->trailerField) == trailerFieldBc;
    constexpr long defaultSalt = 20;
    constexpr long longestSalt = 512; // no hash value is longer, and no key of 16384 bits has more room
    const long salt = parameters->saltLength == nullptr ? defaultSalt : ASN1_INTEGER_get(parameters->saltLength);
    const DigestAlgorithm* const mask = maskDigest(parameters->maskGenAlgorithm);
    if (mask == nullptr) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    return trailer && salt >= 0 && salt <= longestSalt && !mask->gost &&
           EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PSS_PADDING) > 0 &&
           EVP_PKEY_CTX_set_rsa_mgf1_md(context, digestMethod(*mask)) > 0 &&
           EVP_PKEY_CTX_set_rsa_pss_saltlen(context, static_cast<int>(salt)) > 0;
}

bool ecdsaFits(std::string_view signatureOid, const DigestAlgorithm& digest) {
    if (signatureOid == ecPublicKey) {
        return true;
    }
    const auto* const row = std::ranges::find(ecdsaRows, signatureOid, &EcdsaRow::oid);
    if (row == ecdsaRows.end() && findSignature(signatureOid) == nullptr) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    return row != ecdsaRows.end() && row->digestOid == digest.oid;
}

/// ECDSA-Sig-Value (RFC 3279, 2.2.3) in DER, nothing after it: other encodings of the two numbers are other octets that
/// nobody signed.
void requireEcdsaValue(ByteView signature) {
    try {
        der::Reader members(der::readOnly(signature, der::tag::Sequence).content);
        der::toInteger(members.read(der::tag::Integer));
        der::toInteger(members.read(der::tag::Integer));
        members.finish();
    } catch (const ApiError&) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
}

} // namespace

std::optional<bool> verifyOtherSignature(std::string_view keyOid, ByteView subjectPublicKeyInfo,
                                         const AlgorithmId& algorithm, const DigestAlgorithm& digest, ByteView hash,
                                         ByteView signature) {
    const bool elliptic = keyOid == ecPublicKey;
    const bool pss = algorithm.oid == oid::rsassaPss && (keyOid == oid::rsaEncryption || keyOid == oid::rsassaPss);
    if (!elliptic && !pss && keyOid != oid::rsassaPss) {
        return std::nullopt;
    }
    if (digest.gost || (elliptic ? !ecdsaFits(algorithm.oid, digest) : !pss)) {
        return false;
    }
    if (elliptic) {
        requireEcdsaValue(signature);
    }
    const ossl::ErrorMark mark;
    const auto key = ossl::fromDer<ossl::Pkey>(d2i_PUBKEY, subjectPublicKeyInfo);
    if (!key) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    refuseBrokenKey(key.get());
    const ossl::PkeyCtx context(EVP_PKEY_CTX_new(key.get(), nullptr));
    if (!context || EVP_PKEY_verify_init(context.get()) <= 0) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    return (elliptic || configurePss(context.get(), algorithm.parameters, digest)) &&
           EVP_PKEY_CTX_set_signature_md(context.get(), digestMethod(digest)) > 0 &&
           EVP_PKEY_verify(context.get(), signature.data(), signature.size(), hash.data(), hash.size()) == 1;
}

} // namespace klunortredi::csp
