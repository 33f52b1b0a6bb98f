#include "messages/signer_builder.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/digest.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/signature.hpp"
#include "messages/attribute_rules.hpp"
#include "messages/given_values.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

std::vector<Bytes> encodeAll(const std::vector<Attribute>& attributes) {
    std::vector<Bytes> encoded;
    std::ranges::transform(attributes, std::back_inserter(encoded), encodeAttribute);
    return encoded;
}

/// Parameters are absent but where RFC 4490 (2.1, 3.1) wants a NULL.
Bytes algorithmId(std::string_view oid, bool nullParameters) {
    return encodeAlgorithmId({std::string(oid), nullParameters ? der::null() : Bytes{}});
}

bool isLegacyGost(const DigestAlgorithm& digest) {
    return digest.oid == oid::gostR341194;
}

} // namespace

SignerBuilder::SignerBuilder(const CMSG_SIGNER_ENCODE_INFO& info, std::string_view contentType)
    : keySpec_(info.dwKeySpec), digest_(nullptr), signsAttributes_(info.cAuthAttr != 0 || contentType != oid::data) {
    if (info.cbSize != sizeof info || info.pCertInfo == nullptr || info.HashAlgorithm.pszObjId == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    digest_ = findDigest(std::string_view(info.HashAlgorithm.pszObjId));
    if (digest_ == nullptr) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    context_ = signingContext(info.hCryptProv);
    const Bytes keyInfo = context_->publicKeyInfo(keySpec_);
    const ossl::Pkey key = publicKeyFromInfo(keyInfo);
    key_ = &keyAlgorithm(key.get());
    if (signatureOid(*key_, *digest_).empty()) {
        fail(capi::NTE_BAD_ALGID);
    }
    // Were the certificate that of another key, nobody could verify the message.
    if (!samePublicKey(keyInfo, encodePublicKeyInfo(info.pCertInfo->SubjectPublicKeyInfo))) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
    signatureSize_ = signatureSize(key.get());
    issuerAndSerial_ = givenIssuerAndSerial(info.pCertInfo->Issuer, info.pCertInfo->SerialNumber);

    std::vector<Attribute> given = givenAttributes(info.rgAuthAttr, info.cAuthAttr);
    const auto ours = [](const Attribute& a) { return a.oid == oid::contentType || a.oid == oid::messageDigest; };
    if (std::ranges::any_of(given, ours)) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    given.push_back({std::string(oid::contentType), {der::objectIdentifier(contentType)}});
    const std::vector<Attribute> unsignedOnes = givenAttributes(info.rgUnauthAttr, info.cUnauthAttr);
    checkAttributeRules(given, unsignedOnes);
    signedAttributes_ = encodeAll(given);
    unsignedAttributes_ = encodeAll(unsignedOnes);
}

Bytes SignerBuilder::digestAlgorithm() const {
    return algorithmId(digest_->oid, isLegacyGost(*digest_));
}

Bytes SignerBuilder::sign(ByteView contentHash) const {
    if (!signsAttributes_) {
        return encode({}, context_->sign(keySpec_, *digest_, contentHash));
    }
    const Bytes attributes = signedAttributes(contentHash);
    return encode(attributes, context_->sign(keySpec_, *digest_, Digest::of(*digest_, attributes)));
}

std::size_t SignerBuilder::encodedSize() const {
    const Bytes attributes = signsAttributes_ ? signedAttributes(Bytes(digest_->size)) : Bytes{};
    return encode(attributes, Bytes(signatureSize_)).size();
}

/// With the universal tag of a SET, as it is signed.
Bytes SignerBuilder::signedAttributes(ByteView contentHash) const {
    std::vector<Bytes> all = signedAttributes_;
    all.push_back(encodeAttribute({std::string(oid::messageDigest), {der::octetString(contentHash)}}));
    return der::setOf(std::move(all));
}

Bytes SignerBuilder::encode(ByteView signedAttributes, ByteView signature) const {
    constexpr std::int64_t namedByIssuerAndSerial = 1;
    const bool rsa = key_->oid == oid::rsaEncryption;
    Bytes implicitAttributes(signedAttributes.begin(), signedAttributes.end());
    if (!implicitAttributes.empty()) {
        implicitAttributes = der::implicitTag(0, std::move(implicitAttributes));
    }
    const Bytes unsignedSet =
        unsignedAttributes_.empty() ? Bytes{} : der::setOf(unsignedAttributes_, der::tag::contextConstructed(1));
    // The key's own OID: RFC 4490 3.1, RFC 3370 3.2, and what the tools for GOST R 34.10-2012 write.
    return der::sequence({der::integer(namedByIssuerAndSerial), issuerAndSerial_, digestAlgorithm(), implicitAttributes,
                          algorithmId(key_->oid, rsa || isLegacyGost(*digest_)), der::octetString(signature),
                          unsignedSet});
}

} // namespace klunortredi::csp
