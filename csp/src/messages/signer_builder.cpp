#include "messages/signer_builder.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/digest.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/signature.hpp"
#include "messages/attribute_rules.hpp"
#include "messages/given_values.hpp"
#include "x509/blob.hpp"
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

constexpr std::string_view sha1 = "1.3.14.3.2.26";

/// RSASSA-PSS-params (RFC 4055, 3.1) for a digest: the digest, MGF1 with it, a salt of its size. None of them is the
/// default, which stands for SHA-1, so DER has them all; the trailer field is the default and left out.
Bytes pssAlgorithm(const DigestAlgorithm& digest) {
    constexpr std::string_view mgf1 = "1.2.840.113549.1.1.8";
    const Bytes hash = algorithmId(digest.oid, true);
    const Bytes mask = encodeAlgorithmId({std::string(mgf1), hash});
    const Bytes parameters = der::sequence({der::explicitTag(0, hash), der::explicitTag(1, mask),
                                            der::explicitTag(2, der::integer(static_cast<std::int64_t>(digest.size)))});
    return encodeAlgorithmId({std::string(oid::rsassaPss), parameters});
}

bool isLegacyGost(const DigestAlgorithm& digest) {
    return digest.oid == oid::gostR341194;
}

} // namespace

SignerBuilder::SignerBuilder(const CMSG_SIGNER_ENCODE_INFO& info, std::string_view contentType)
    : keySpec_(info.dwKeySpec), digest_(nullptr), signsAttributes_(info.cAuthAttr != 0 || contentType != oid::data) {
    const bool hasFields = info.cbSize == sizeof(CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS);
    if ((info.cbSize != sizeof info && !hasFields) || info.pCertInfo == nullptr ||
        info.HashAlgorithm.pszObjId == nullptr) {
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
    signerIdentifier_ = givenIssuerAndSerial(info.pCertInfo->Issuer, info.pCertInfo->SerialNumber);
    if (hasFields) {
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the size tells what the structure is
        readFields(reinterpret_cast<const CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS&>(info));
    }

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

void SignerBuilder::readFields(const CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS& fields) {
    constexpr DWORD notNamed = 0;
    const CERT_ID& id = fields.SignerId;
    if (id.dwIdChoice == capi::CERT_ID_KEY_IDENTIFIER) {
        const ByteView keyId = blobView(id.u.KeyId);
        if (keyId.empty()) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        signerIdentifier_ = der::implicitTag(0, der::octetString(keyId));
        byKeyIdentifier_ = true;
    } else if (id.dwIdChoice != notNamed && id.dwIdChoice != capi::CERT_ID_ISSUER_SERIAL_NUMBER) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    const CRYPT_ALGORITHM_IDENTIFIER& algorithm = fields.HashEncryptionAlgorithm;
    if (algorithm.pszObjId == nullptr || algorithm.pszObjId == key_->oid) {
        return;
    }
    const bool usable = key_->oid == oid::rsaEncryption && digest_->oid != sha1 && algorithm.Parameters.cbData == 0;
    if (algorithm.pszObjId != oid::rsassaPss || !usable) {
        fail(capi::NTE_BAD_ALGID);
    }
    scheme_ = RsaScheme::pss;
}

/// The key's own OID: RFC 4490 3.1, RFC 3370 3.2, and what the tools for GOST R 34.10-2012 write; or RSASSA-PSS.
Bytes SignerBuilder::signatureAlgorithm() const {
    if (scheme_ == RsaScheme::pss) {
        return pssAlgorithm(*digest_);
    }
    return algorithmId(key_->oid, key_->oid == oid::rsaEncryption || isLegacyGost(*digest_));
}

Bytes SignerBuilder::digestAlgorithm() const {
    return algorithmId(digest_->oid, isLegacyGost(*digest_));
}

Bytes SignerBuilder::sign(ByteView contentHash) const {
    if (!signsAttributes_) {
        return encode({}, context_->sign(keySpec_, *digest_, contentHash, scheme_));
    }
    const Bytes attributes = signedAttributes(contentHash);
    return encode(attributes, context_->sign(keySpec_, *digest_, Digest::of(*digest_, attributes), scheme_));
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
    constexpr std::int64_t namedByKeyIdentifier = 3;
    Bytes implicitAttributes(signedAttributes.begin(), signedAttributes.end());
    if (!implicitAttributes.empty()) {
        implicitAttributes = der::implicitTag(0, std::move(implicitAttributes));
    }
    const Bytes unsignedSet =
        unsignedAttributes_.empty() ? Bytes{} : der::setOf(unsignedAttributes_, der::tag::contextConstructed(1));
    return der::sequence({der::integer(byKeyIdentifier_ ? namedByKeyIdentifier : namedByIssuerAndSerial),
                          signerIdentifier_, digestAlgorithm(), implicitAttributes, signatureAlgorithm(),
                          der::octetString(signature), unsignedSet});
}

} // namespace klunortredi::csp
