#include "messages/signature_check.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/signature.hpp"
#include "messages/attribute_rules.hpp"
#include "messages/broken_algorithms.hpp"
#include "messages/other_signatures.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

void checkContentType(const SignerInfo& signer, std::string_view contentType) {
    const Bytes& value = onlyValue(signer.signedAttributes, oid::contentType);
    if (value.front() != der::tag::ObjectIdentifier || decodeOid(value) != contentType) {
        fail(capi::CRYPT_E_UNEXPECTED_MSG_TYPE);
    }
}

void checkMessageDigest(const SignerInfo& signer, const Bytes& contentHash) {
    const Bytes& value = onlyValue(signer.signedAttributes, oid::messageDigest);
    if (!std::ranges::equal(value, der::octetString(contentHash))) {
        fail(capi::CRYPT_E_HASH_VALUE);
    }
}

/// What the signature value covers: the content's hash, or that of the signed attributes, which are checked here.
Bytes signedHash(const SignerInfo& signer, std::string_view contentType, const ContentHasher& content,
                 const DigestAlgorithm& digest) {
    const Bytes& contentHash = content.value(digest.oid);
    checkAttributeRules(signer.signedAttributes, signer.unsignedAttributes);
    if (!signer.hasSignedAttributes) {
        // Without them nothing would bind the type to the signature (RFC 5652, 5.3).
        if (contentType != oid::data || content.looksLikeAttributes()) {
            fail(capi::CRYPT_E_AUTH_ATTR_MISSING);
        }
        return contentHash;
    }
    checkContentType(signer, contentType);
    checkMessageDigest(signer, contentHash);
    return Digest::of(digest, signer.signedAttributesSet);
}

/// OID under which the key's SubjectPublicKeyInfo stands.
std::string keyOid(ByteView subjectPublicKeyInfo) {
    der::Reader members(der::readOnly(subjectPublicKeyInfo, der::tag::Sequence).content);
    return decodeAlgorithm(members.read(der::tag::Sequence).whole).oid;
}

/// Whether the signature algorithm named is one of `key` (found under `keyOid`) with `digest`.
bool fits(std::string_view signatureOid, const KeyAlgorithm& key, std::string_view keyOid,
          const DigestAlgorithm& digest) {
    // The agreement OID of a key names no signature, but producers repeat it when the certificate carries it.
    const bool repeatsAgreement = signatureOid == key.agreeOid && signatureOid == keyOid;
    const SignatureAlgorithm* const row = findSignature(repeatsAgreement ? key.oid : signatureOid);
    if (row == nullptr) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    return row->keyOid == key.oid && (row->digestOid.empty() || row->digestOid == digest.oid);
}

bool holds(const SignerInfo& signer, ByteView subjectPublicKeyInfo, const DigestAlgorithm& digest, ByteView hash) {
    const std::string keyAlgorithmOid = keyOid(subjectPublicKeyInfo);
    if (const auto answer =
            verifyOtherSignature(keyAlgorithmOid, subjectPublicKeyInfo, signer.signature, digest, hash, signer.value)) {
        return *answer;
    }
    if (findKey(std::string_view(keyAlgorithmOid)) == nullptr) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    const ossl::Pkey key = publicKeyFromInfo(subjectPublicKeyInfo);
    refuseBrokenKey(key.get());
    return fits(signer.signature.oid, keyAlgorithm(key.get()), keyAlgorithmOid, digest) &&
           verifyDigest(key.get(), digest, hash, signer.value);
}

const DigestAlgorithm& digestOf(const SignerInfo& signer) {
    refuseBrokenDigest(signer.digest.oid);
    refuseBrokenDigest(signer.signature.oid);
    const DigestAlgorithm* const digest = findDigest(std::string_view(signer.digest.oid));
    if (digest == nullptr) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    return *digest;
}

void requireValue(const SignerInfo& signer, ByteView subjectPublicKeyInfo, const DigestAlgorithm& digest,
                  ByteView hash) {
    if (!holds(signer, subjectPublicKeyInfo, digest, hash)) {
        fail(capi::NTE_BAD_SIGNATURE);
    }
}

} // namespace

void checkSignature(const SignerInfo& signer, std::string_view contentType, const ContentHasher& content,
                    ByteView subjectPublicKeyInfo) {
    const DigestAlgorithm& digest = digestOf(signer);
    requireValue(signer, subjectPublicKeyInfo, digest, signedHash(signer, contentType, content, digest));
}

void checkCounterSignature(const SignerInfo& counter, ByteView parentValue, ByteView subjectPublicKeyInfo) {
    const DigestAlgorithm& digest = digestOf(counter);
    checkAttributeRules(counter.signedAttributes, counter.unsignedAttributes);
    Bytes hash = Digest::of(digest, parentValue);
    if (counter.hasSignedAttributes) {
        const auto names = [](const Attribute& attribute) { return attribute.oid == oid::contentType; };
        if (std::ranges::any_of(counter.signedAttributes, names)) { // there is no content that could have a type
            fail(capi::CRYPT_E_UNEXPECTED_MSG_TYPE);
        }
        checkMessageDigest(counter, hash);
        hash = Digest::of(digest, counter.signedAttributesSet);
    } else {
        AttributeShape shape;
        shape.update(parentValue);
        if (shape.matches()) {
            fail(capi::CRYPT_E_AUTH_ATTR_MISSING);
        }
    }
    requireValue(counter, subjectPublicKeyInfo, digest, hash);
}

} // namespace klunortredi::csp
