#include "enveloped_support.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "core/ossl.hpp"
#include "crypto/engine.hpp"
#include "crypto/signature.hpp"
#include "exports/export.hpp"
#include "keys/container.hpp"
#include "keys/context.hpp"
#include "keys/providers.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>
#include <stdexcept>

namespace klunortredi::test {

namespace {

namespace api = csp::exports;

DWORD providerTypeOf(const csp::KeyAlgorithm& algorithm) {
    switch (algorithm.signId) {
    case capi::CALG_GR3410_12_256:
        return capi::PROV_GOST_2012_256;
    case capi::CALG_GR3410_12_512:
        return capi::PROV_GOST_2012_512;
    case capi::CALG_GR3410EL:
        return capi::PROV_GOST_2001_DH;
    default:
        return capi::PROV_RSA_AES;
    }
}

/// The recipient that the certificate names; nothing when there is none.
std::optional<DWORD> findRecipient(const Msg& msg, ByteView certificate) {
    const csp::CertInfo own(certificate);
    const auto same = [](const auto& a, const auto& b) {
        return std::equal(a.pbData, a.pbData + a.cbData, b.pbData, b.pbData + b.cbData);
    };
    const DWORD count = msg.number(capi::CMSG_RECIPIENT_COUNT_PARAM);
    for (DWORD i = 0; i < count; ++i) {
        const Bytes param = msg.param(capi::CMSG_RECIPIENT_INFO_PARAM, i);
        const auto& info = *reinterpret_cast<const CERT_INFO*>(param.data());
        if (same(info.SerialNumber, own.get().SerialNumber) && same(info.Issuer, own.get().Issuer)) {
            return i;
        }
    }
    return std::nullopt;
}

} // namespace

Signer makeRecipient(const Bytes& privateKey, const Bytes& certificate) {
    useOwnHome();
    csp::gostEngine();
    const Bytes der = fromPem(privateKey);
    const unsigned char* next = der.data();
    const csp::ossl::Pkey key(d2i_AutoPrivateKey(nullptr, &next, static_cast<long>(der.size())));
    if (!key) {
        throw std::runtime_error("the private key cannot be read");
    }
    static int made = 0;
    const csp::ContainerId id{"recipient" + std::to_string(++made), providerTypeOf(csp::keyAlgorithm(key.get()))};
    csp::NewContainer draft(id);
    draft.container().addKey(capi::AT_KEYEXCHANGE, key.get(), true, "");
    draft.commit();
    Signer recipient;
    recipient.certificate = fromPem(certificate);
    const std::wstring name(id.name.begin(), id.name.end());
    recipient.provider = csp::acquireContext(name, L"", id.providerType, 0);
    return recipient;
}

DWORD decrypt(const Msg& msg, const Signer& recipient, DWORD index) {
    const CMSG_CTRL_DECRYPT_PARA parameters{sizeof parameters, recipient.provider, recipient.keySpec, index};
    return api::CryptMsgControl(msg.handle(), 0, capi::CMSG_CTRL_DECRYPT, &parameters) != 0 ? 0 : api::GetLastError();
}

Opened open(const Signer& recipient, ByteView message, const OpenOptions& options) {
    Collected collected;
    CMSG_STREAM_INFO stream = collected.info();
    const Msg msg = Msg::decode(0, options.streamed ? &stream : nullptr);
    Opened opened;
    bool unlocked = false;
    const auto unlock = [&] {
        const std::optional<DWORD> index =
            options.recipient ? options.recipient : findRecipient(msg, recipient.certificate);
        unlocked = true;
        opened.error = index ? decrypt(msg, recipient, *index) : capi::CRYPT_E_RECIPIENT_NOT_FOUND;
    };
    const std::size_t chunk = options.chunk == whole ? std::max<std::size_t>(message.size(), 1) : options.chunk;
    bool fed = false;
    for (std::size_t at = 0; opened.error == 0 && !fed; at += chunk) {
        const ByteView piece = message.subspan(at, std::min(chunk, message.size() - at));
        fed = at + piece.size() == message.size();
        opened.error = msg.feed(piece, whole, fed);
        if (opened.error == 0 && options.keyFirst && !unlocked &&
            msg.paramError(capi::CMSG_RECIPIENT_COUNT_PARAM) == 0) {
            unlock();
        }
    }
    if (opened.error == 0 && !unlocked) {
        unlock();
    }
    opened.plaintext = collected.octets;
    opened.finalCalls = collected.finalCalls;
    if (!options.streamed && opened.error == 0) {
        opened.plaintext = msg.param(capi::CMSG_CONTENT_PARAM);
    }
    return opened;
}

Bytes opensslEncrypt(const TempFolder& folder, const std::vector<Bytes>& certificates, ByteView content,
                     const std::string& words) {
    std::string files;
    for (std::size_t i = 0; i < certificates.size(); ++i) {
        const std::string name = "r" + std::to_string(i);
        writeFile(folder.path() / (name + ".der"), certificates[i]);
        if (run(folder, "openssl x509 -inform DER -in " + name + ".der -out " + name + ".pem") != 0) {
            throw std::runtime_error(output(folder));
        }
        files += " " + name + ".pem";
    }
    writeFile(folder.path() / "plain.bin", content);
    if (run(folder, "openssl cms -encrypt -binary -in plain.bin -outform DER -out sealed.der " + words + files) != 0) {
        throw std::runtime_error(output(folder));
    }
    return readFile(folder.path() / "sealed.der");
}

namespace {

csp::ossl::X509Ptr decoded(const Signer& recipient) {
    const unsigned char* next = recipient.certificate.data();
    return csp::ossl::X509Ptr(d2i_X509(nullptr, &next, static_cast<long>(recipient.certificate.size())));
}

Bytes issuerAndSerial(const Signer& recipient) {
    const csp::CertInfo info(recipient.certificate);
    const CERT_INFO& fields = info.get();
    const ByteView issuer(fields.Issuer.pbData, fields.Issuer.cbData);
    Bytes serial(fields.SerialNumber.pbData, fields.SerialNumber.pbData + fields.SerialNumber.cbData);
    std::ranges::reverse(serial);
    return csp::der::sequence({issuer, csp::der::integer(serial)});
}

Bytes keyIdentifier(const Signer& recipient) {
    const csp::ossl::X509Ptr certificate = decoded(recipient);
    const ASN1_OCTET_STRING* const id = X509_get0_subject_key_id(certificate.get());
    return csp::der::element(csp::der::tag::context(0),
                             {ASN1_STRING_get0_data(id), static_cast<std::size_t>(ASN1_STRING_length(id))});
}

csp::ossl::Pkey publicKey(const Signer& recipient) {
    const csp::CertInfo info(recipient.certificate);
    return csp::publicKeyFromInfo(info.subjectPublicKeyInfo());
}

Bytes algorithmIdentifier(std::string_view oid, ByteView parameters) {
    return csp::der::sequence({csp::der::objectIdentifier(oid), parameters});
}

} // namespace

Bytes transportInfo(const Signer& recipient, csp::TransportForm form, ByteView contentKey, bool byKeyId) {
    const csp::TransportedKey wrapped = csp::wrapKey({publicKey(recipient).get()}, form, contentKey);
    return csp::der::sequence(
        {csp::der::integer(byKeyId ? 2 : 0), byKeyId ? keyIdentifier(recipient) : issuerAndSerial(recipient),
         algorithmIdentifier(wrapped.oid, wrapped.parameters), csp::der::octetString(wrapped.encryptedKey)});
}

Bytes agreementInfo(const std::vector<Signer>& recipients, csp::AgreementForm form, ByteView contentKey) {
    // Each wrapping has an ephemeral key of its own; the message names the last one, so only that recipient's opens.
    csp::AgreedKey wrapped;
    Bytes keys;
    for (const Signer& recipient : recipients) {
        wrapped = csp::wrapKey({publicKey(recipient).get()}, form, contentKey);
        csp::der::append(keys,
                         csp::der::sequence({issuerAndSerial(recipient), csp::der::octetString(wrapped.encryptedKey)}));
    }
    const Bytes originator = csp::der::explicitTag(0, csp::der::implicitTag(1, wrapped.originatorKey));
    return csp::der::implicitTag(1, csp::der::sequence({csp::der::integer(3), originator,
                                                        csp::der::explicitTag(1, csp::der::octetString(wrapped.ukm)),
                                                        algorithmIdentifier(wrapped.oid, wrapped.parameters),
                                                        csp::der::element(csp::der::tag::Sequence, keys)}));
}

Bytes passwordInfo() {
    const Bytes algorithm = algorithmIdentifier("1.2.840.113549.1.9.16.3.9", {});
    return csp::der::implicitTag(
        3, csp::der::sequence({csp::der::integer(0), algorithm, csp::der::octetString(patternOf(40))}));
}

Bytes contentKeyFor(std::string_view algorithm) {
    return patternOf(csp::findContentAlgorithmByName(algorithm)->keySize);
}

Bytes craftEnveloped(std::string_view algorithm, ByteView contentKey, ByteView content,
                     const std::vector<Bytes>& recipientInfos, ByteView attributes) {
    namespace der = csp::der;
    const csp::ContentAlgorithm& row = *csp::findContentAlgorithmByName(algorithm);
    const Bytes parameters = csp::newContentParameters(row);
    const auto cipher = csp::contentEncryptor(row, parameters, contentKey, attributes);
    Bytes ciphertext;
    cipher->update(content, ciphertext);
    cipher->finish(ciphertext);
    const Bytes encrypted =
        der::sequence({der::objectIdentifier("1.2.840.113549.1.7.1"), algorithmIdentifier(row.oid, parameters),
                       der::element(der::tag::context(0), ciphertext)});
    const Bytes recipients = der::setOf(recipientInfos);
    if (row.authentication == csp::Authentication::AuthEnveloped) {
        const Bytes attributeSet =
            attributes.empty() ? Bytes{} : der::implicitTag(1, {attributes.begin(), attributes.end()});
        const Bytes body =
            der::sequence({der::integer(0), recipients, encrypted, attributeSet, der::octetString(cipher->tag())});
        return der::sequence({der::objectIdentifier("1.2.840.113549.1.9.16.1.23"), der::explicitTag(0, body)});
    }
    Bytes unprotected;
    if (row.authentication == csp::Authentication::MacAttribute) {
        const Bytes attribute =
            der::sequence({der::objectIdentifier(csp::macAttributeOid), der::setOf({der::octetString(cipher->tag())})});
        unprotected = der::element(der::tag::contextConstructed(1), attribute);
    }
    const Bytes body = der::sequence({der::integer(2), recipients, encrypted, unprotected});
    return der::sequence({der::objectIdentifier("1.2.840.113549.1.7.3"), der::explicitTag(0, body)});
}

Bytes patternOf(std::size_t size) {
    Bytes octets(size);
    for (std::size_t i = 0; i < size; ++i) {
        octets[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    }
    return octets;
}

} // namespace klunortredi::test
