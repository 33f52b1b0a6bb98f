#include "objects/codecs.hpp"
#include "objects/parts.hpp"
#include "objects/time.hpp"
#include "x509/cert_info.hpp"

namespace klunortredi::csp {

namespace {

Bytes encodeUniqueId(unsigned number, const CRYPT_BIT_BLOB& id) {
    return id.cbData == 0 ? Bytes{} : der::implicitTag(number, bitStringArgument(id));
}

void decodeUniqueId(der::Reader& reader, unsigned number, std::size_t offset, StructBuilder& out) {
    if (const auto id = reader.readIf(der::tag::context(number))) {
        putBits(out, offset, *id);
    }
}

/// The to-be-signed part of a certificate, or the value itself when it is one. They differ in the first element.
der::Element toBeSigned(const der::Element& value) {
    der::Reader reader(contentOf(value, der::tag::Sequence));
    return reader.next(der::tag::Sequence) ? reader.read() : value;
}

} // namespace

Bytes encodeSignedContent(const CERT_SIGNED_CONTENT_INFO& info) {
    return der::sequence(
        {anyArgument(info.ToBeSigned), encodeAlgorithm(info.SignatureAlgorithm), bitStringArgument(info.Signature)});
}

void decodeSignedContent(const der::Element& value, StructBuilder& out) {
    der::Reader reader(contentOf(value, der::tag::Sequence));
    out.blob(offsetof(CERT_SIGNED_CONTENT_INFO, ToBeSigned), reader.read().whole);
    putAlgorithm(out, offsetof(CERT_SIGNED_CONTENT_INFO, SignatureAlgorithm), reader.read());
    putBits(out, offsetof(CERT_SIGNED_CONTENT_INFO, Signature), reader.read(der::tag::BitString));
    reader.finish();
}

Bytes encodeCertificateInfo(const CERT_INFO& info) {
    const Bytes version =
        info.dwVersion == 0 ? Bytes{} : der::explicitTag(0, der::integer(std::int64_t{info.dwVersion}));
    const Bytes extensions =
        info.cExtension == 0 ? Bytes{} : der::explicitTag(3, extensionsArgument(info.cExtension, info.rgExtension));
    return der::sequence({version, integerArgument(info.SerialNumber), encodeAlgorithm(info.SignatureAlgorithm),
                          nameArgument(info.Issuer),
                          der::sequence({encodeChoiceOfTime(info.NotBefore), encodeChoiceOfTime(info.NotAfter)}),
                          nameArgument(info.Subject), encodePublicKeyInfo(info.SubjectPublicKeyInfo),
                          encodeUniqueId(1, info.IssuerUniqueId), encodeUniqueId(2, info.SubjectUniqueId), extensions});
}

void decodeCertificateInfo(const der::Element& value, StructBuilder& out) {
    der::Reader reader(toBeSigned(value).content);
    if (const auto version = reader.readIf(der::tag::contextConstructed(0))) {
        out.at<CERT_INFO>(0).dwVersion = der::toUint32(der::readOnly(version->content, der::tag::Integer));
    }
    putInteger(out, offsetof(CERT_INFO, SerialNumber), reader.read(der::tag::Integer));
    putAlgorithm(out, offsetof(CERT_INFO, SignatureAlgorithm), reader.read());
    out.blob(offsetof(CERT_INFO, Issuer), reader.read(der::tag::Sequence).whole);
    der::Reader validity = reader.enter(der::tag::Sequence);
    out.at<CERT_INFO>(0).NotBefore = decodeChoiceOfTime(validity.read());
    out.at<CERT_INFO>(0).NotAfter = decodeChoiceOfTime(validity.read());
    validity.finish();
    out.blob(offsetof(CERT_INFO, Subject), reader.read(der::tag::Sequence).whole);
    putPublicKeyInfo(out, offsetof(CERT_INFO, SubjectPublicKeyInfo), reader.read());
    decodeUniqueId(reader, 1, offsetof(CERT_INFO, IssuerUniqueId), out);
    decodeUniqueId(reader, 2, offsetof(CERT_INFO, SubjectUniqueId), out);
    if (const auto extensions = reader.readIf(der::tag::contextConstructed(3))) {
        putExtensions(out, offsetof(CERT_INFO, cExtension), offsetof(CERT_INFO, rgExtension),
                      der::readOnly(extensions->content, der::tag::Sequence).content);
    }
    reader.finish();
}

Bytes encodeRequestInfo(const CERT_REQUEST_INFO& info) {
    std::vector<Bytes> attributes;
    for (const CRYPT_ATTRIBUTE& attribute : arrayArgument(info.cAttribute, info.rgAttribute)) {
        attributes.push_back(attributeArgument(attribute));
    }
    return der::sequence({der::integer(std::int64_t{info.dwVersion}), nameArgument(info.Subject),
                          encodePublicKeyInfo(info.SubjectPublicKeyInfo),
                          der::setOf(std::move(attributes), der::tag::contextConstructed(0))});
}

void decodeRequestInfo(const der::Element& value, StructBuilder& out) {
    der::Reader reader(contentOf(value, der::tag::Sequence));
    out.at<CERT_REQUEST_INFO>(0).dwVersion = der::toUint32(reader.read(der::tag::Integer));
    out.blob(offsetof(CERT_REQUEST_INFO, Subject), reader.read(der::tag::Sequence).whole);
    putPublicKeyInfo(out, offsetof(CERT_REQUEST_INFO, SubjectPublicKeyInfo), reader.read());
    const auto attributes = elementsOf(reader.read(der::tag::contextConstructed(0)).content);
    reader.finish();
    std::size_t at = putArray<CRYPT_ATTRIBUTE>(out, offsetof(CERT_REQUEST_INFO, cAttribute),
                                               offsetof(CERT_REQUEST_INFO, rgAttribute), attributes.size());
    for (const der::Element& attribute : attributes) {
        putAttribute(out, at, attribute);
        at += sizeof(CRYPT_ATTRIBUTE);
    }
}

void decodePublicKeyInfo(const der::Element& value, StructBuilder& out) {
    putPublicKeyInfo(out, 0, value);
}

} // namespace klunortredi::csp
