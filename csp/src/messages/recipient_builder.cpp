#include "messages/recipient_builder.hpp"

#include "asn1/der.hpp"
#include "capi/constants.hpp"
#include "core/error.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/key_wrapping.hpp"
#include "crypto/signature.hpp"
#include "messages/cms_types.hpp"
#include "messages/given_values.hpp"
#include "x509/blob.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

namespace klunortredi::csp {

namespace {

/// Recipients of one message. Each costs a key operation, and every reader looks through all of them.
constexpr DWORD mostRecipients = 1024;

[[noreturn]] void refuse() {
    fail(capi::ERROR_INVALID_PARAMETER);
}

/// What the wraps of GOST keys are called, and which content ciphers' names begin how.
struct GostWrap {
    std::string_view cipherName;
    std::string_view wrapOid;
    TransportForm transport;
    AgreementForm agreement;
};
constexpr std::array gostWraps{
    GostWrap{"kuznyechik-", "1.2.643.7.1.1.7.2.1", TransportForm::KExp15Kuznyechik, AgreementForm::KExp15Kuznyechik},
    GostWrap{"magma-", "1.2.643.7.1.1.7.1.1", TransportForm::KExp15Magma, AgreementForm::KExp15Magma},
    GostWrap{"gost28147-", "1.2.643.2.2.13.1", TransportForm::GostCryptoPro, AgreementForm::GostCryptoPro},
    GostWrap{"", "1.2.643.2.2.13.0", TransportForm::GostCryptoPro, AgreementForm::GostPlain},
};

TransportForm gostTransport(const ContentAlgorithm& content) {
    const auto* const row = std::ranges::find_if(
        gostWraps, [&](const GostWrap& wrap) { return content.name.starts_with(wrap.cipherName); });
    return row->transport;
}

AgreementForm gostAgreement(const char* wrapOid) {
    const auto* const row =
        std::ranges::find_if(gostWraps, [&](const GostWrap& wrap) { return wrap.wrapOid == wrapOid; });
    if (row == gostWraps.end()) {
        fail(capi::NTE_BAD_ALGID);
    }
    return row->agreement;
}

/// The name of a recipient: RecipientIdentifier or KeyAgreeRecipientIdentifier.
struct Identifier {
    Bytes transport;
    Bytes agreement;
    bool byKeyId;
};

Identifier issuerAndSerial(const CRYPTOAPI_BLOB& issuer, const CRYPTOAPI_BLOB& serialNumber) {
    const Bytes name = givenIssuerAndSerial(issuer, serialNumber);
    return {name, name, false};
}

Identifier identifier(const CERT_ID& id) {
    if (id.dwIdChoice == capi::CERT_ID_ISSUER_SERIAL_NUMBER) {
        return issuerAndSerial(id.u.IssuerSerialNumber.Issuer, id.u.IssuerSerialNumber.SerialNumber);
    }
    if (id.dwIdChoice != capi::CERT_ID_KEY_IDENTIFIER || id.u.KeyId.cbData == 0) {
        refuse();
    }
    const ByteView keyId = blobView(id.u.KeyId);
    return {der::element(der::tag::context(0), keyId),
            der::element(der::tag::contextConstructed(0), der::octetString(keyId)), true};
}

/// A recipient's public key, of the kind that the content cipher is for, and its parameters as they were given.
struct PublicKey {
    ossl::Pkey key;
    ByteView parameters;

    [[nodiscard]] RecipientKey recipient() const { return {key.get(), parameters}; }
};

PublicKey publicKey(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, const CRYPT_BIT_BLOB& key,
                    const ContentAlgorithm& content) {
    if (algorithm.pszObjId == nullptr) {
        refuse();
    }
    CERT_PUBLIC_KEY_INFO info{algorithm, key};
    std::string rsa(oid::rsaEncryption);
    if (algorithm.pszObjId == oid::rsaesOaep) { // a padding, not a kind of key
        info.Algorithm = {rsa.data(), {}};
    }
    ossl::Pkey made = publicKeyFromInfo(encodePublicKeyInfo(info));
    if ((keyAlgorithm(made.get()).oid != oid::rsaEncryption) != content.gost) {
        fail(capi::NTE_BAD_ALGID);
    }
    return {std::move(made), blobView(algorithm.Parameters)};
}

class Builder {
public:
    Builder(const ContentAlgorithm& content, ByteView contentKey) : content_(content), contentKey_(contentKey) {}

    void add(const CERT_INFO& certificate) {
        const auto& info = certificate.SubjectPublicKeyInfo;
        transport(publicKey(info.Algorithm, info.PublicKey, content_), false,
                  issuerAndSerial(certificate.Issuer, certificate.SerialNumber));
    }

    void add(const CMSG_RECIPIENT_ENCODE_INFO& recipient) {
        if (recipient.dwRecipientChoice == capi::CMSG_KEY_TRANS_RECIPIENT && recipient.u.pKeyTrans != nullptr) {
            add(*recipient.u.pKeyTrans);
        } else if (recipient.dwRecipientChoice == capi::CMSG_KEY_AGREE_RECIPIENT && recipient.u.pKeyAgree != nullptr) {
            add(*recipient.u.pKeyAgree);
        } else {
            refuse();
        }
    }

    RecipientInfos take() { return std::move(infos_); }

private:
    void add(const CMSG_KEY_TRANS_RECIPIENT_ENCODE_INFO& recipient) {
        if (recipient.cbSize != sizeof recipient) {
            refuse();
        }
        const auto& algorithm = recipient.KeyEncryptionAlgorithm;
        const PublicKey key = publicKey(algorithm, recipient.RecipientPublicKey, content_);
        transport(key, algorithm.pszObjId == oid::rsaesOaep, identifier(recipient.RecipientId));
    }

    void add(const CMSG_KEY_AGREE_RECIPIENT_ENCODE_INFO& recipient) {
        if (recipient.cbSize != sizeof recipient ||
            recipient.dwKeyChoice != capi::CMSG_KEY_AGREE_EPHEMERAL_KEY_CHOICE ||
            recipient.u.pEphemeralAlgorithm == nullptr || recipient.KeyWrapAlgorithm.pszObjId == nullptr ||
            recipient.UserKeyingMaterial.cbData != 0 || recipient.rgpRecipientEncryptedKeys == nullptr ||
            recipient.cRecipientEncryptedKeys == 0 || recipient.cRecipientEncryptedKeys > mostRecipients) {
            refuse();
        }
        const AgreementForm form = gostAgreement(recipient.KeyWrapAlgorithm.pszObjId);
        for (const auto* const one :
             std::span(recipient.rgpRecipientEncryptedKeys, recipient.cRecipientEncryptedKeys)) {
            if (one == nullptr || one->cbSize != sizeof *one || one->pOtherAttr != nullptr) {
                refuse();
            }
            agreement(publicKey(*recipient.u.pEphemeralAlgorithm, one->RecipientPublicKey, content_), form,
                      identifier(one->RecipientId));
        }
    }

    void transport(const PublicKey& key, bool oaep, const Identifier& name) {
        const TransportForm form = content_.gost ? gostTransport(content_)
                                   : oaep        ? TransportForm::RsaOaep
                                                 : TransportForm::RsaPkcs1;
        const TransportedKey wrapped = wrapKey(key.recipient(), form, contentKey_);
        constexpr std::int64_t byIssuerAndSerial = 0;
        constexpr std::int64_t byKeyId = 2;
        infos_.elements.push_back(der::sequence({der::integer(name.byKeyId ? byKeyId : byIssuerAndSerial),
                                                 name.transport, encodeAlgorithmId({wrapped.oid, wrapped.parameters}),
                                                 der::octetString(wrapped.encryptedKey)}));
        infos_.allVersion0 = infos_.allVersion0 && !name.byKeyId;
    }

    void agreement(const PublicKey& key, AgreementForm form, const Identifier& name) {
        const AgreedKey wrapped = wrapKey(key.recipient(), form, contentKey_);
        constexpr std::int64_t version = 3;
        // OriginatorIdentifierOrKey: [1] IMPLICIT OriginatorPublicKey under the explicit tag [0].
        const Bytes originator = der::explicitTag(0, der::implicitTag(1, wrapped.originatorKey));
        const Bytes ukm = wrapped.ukm.empty() ? Bytes{} : der::explicitTag(1, der::octetString(wrapped.ukm));
        const Bytes encryptedKey = der::sequence({name.agreement, der::octetString(wrapped.encryptedKey)});
        const Bytes body =
            der::sequence({der::integer(version), originator, ukm, encodeAlgorithmId({wrapped.oid, wrapped.parameters}),
                           der::sequence({encryptedKey})});
        infos_.elements.push_back(der::implicitTag(1, body));
        infos_.allVersion0 = false;
    }

    const ContentAlgorithm& content_;
    ByteView contentKey_;
    RecipientInfos infos_;
};

/// Octets of the structure as it was before it had CMS fields.
constexpr DWORD shortForm = offsetof(CMSG_ENVELOPED_ENCODE_INFO, rgCmsRecipients);

} // namespace

RecipientInfos recipientInfos(const CMSG_ENVELOPED_ENCODE_INFO& info, const ContentAlgorithm& content,
                              ByteView contentKey) {
    if (info.cRecipients == 0 || info.cRecipients > mostRecipients) {
        refuse();
    }
    Builder builder(content, contentKey);
    const auto* const cmsRecipients = info.cbSize == shortForm ? nullptr : info.rgCmsRecipients;
    if (cmsRecipients != nullptr) {
        for (const auto& recipient : std::span(cmsRecipients, info.cRecipients)) {
            builder.add(recipient);
        }
        return builder.take();
    }
    if (info.rgpRecipients == nullptr) {
        refuse();
    }
    for (const CERT_INFO* const certificate : std::span(info.rgpRecipients, info.cRecipients)) {
        if (certificate == nullptr) {
            refuse();
        }
        builder.add(*certificate);
    }
    return builder.take();
}

} // namespace klunortredi::csp
