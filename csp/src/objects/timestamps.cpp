#include "objects/codecs.hpp"
#include "objects/parts.hpp"
#include "objects/time.hpp"
#include "text/unicode.hpp"
#include "x509/blob.hpp"
#include "x509/cert_info.hpp"

namespace klunortredi::csp {

namespace {

/// The sign octet keeps a nonce with its highest bit set from becoming negative, which some authorities refuse.
Bytes encodeNonce(const CRYPTOAPI_BLOB& nonce) {
    const ByteView octets = blobView(nonce);
    if (octets.empty()) {
        return {};
    }
    Bytes number{0};
    number.insert(number.end(), octets.rbegin(), octets.rend());
    return der::integer(number);
}

void putNonce(StructBuilder& builder, std::size_t blobOffset, const der::Element& nonce) {
    ByteView octets = der::toInteger(nonce);
    if (octets.size() > 1 && octets[0] == 0) {
        octets = octets.subspan(1);
    }
    builder.blob(blobOffset, Bytes(octets.rbegin(), octets.rend()));
}

Bytes encodeImprint(const CRYPT_ALGORITHM_IDENTIFIER& algorithm, const CRYPT_DER_BLOB& hash) {
    return der::sequence({encodeAlgorithm(algorithm), der::octetString(blobView(hash))});
}

/// Parameters that are malformed inside could not be encoded again.
void requireWellFormedParameters(const der::Element& algorithm) {
    der::Reader reader(contentOf(algorithm, der::tag::Sequence));
    reader.read(der::tag::ObjectIdentifier);
    if (!reader.empty() && !der::isOneBerValue(reader.read().whole)) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
}

void putImprint(StructBuilder& builder, std::size_t algorithmOffset, std::size_t hashOffset,
                const der::Element& imprint) {
    der::Reader reader(contentOf(imprint, der::tag::Sequence));
    const der::Element algorithm = reader.read();
    requireWellFormedParameters(algorithm);
    putAlgorithm(builder, algorithmOffset, algorithm);
    builder.blob(hashOffset, reader.read(der::tag::OctetString).content);
    reader.finish();
}

Bytes encodeTaggedExtensions(unsigned number, DWORD count, const CERT_EXTENSION* extensions) {
    return count == 0 ? Bytes{} : der::implicitTag(number, extensionsArgument(count, extensions));
}

Bytes encodeAccuracyPart(DWORD value) {
    return der::integer(std::int64_t{value});
}

Bytes encodeAccuracy(const CRYPT_TIMESTAMP_ACCURACY* accuracy) {
    if (accuracy == nullptr) {
        return {};
    }
    return der::sequence(
        {accuracy->dwSeconds == 0 ? Bytes{} : encodeAccuracyPart(accuracy->dwSeconds),
         accuracy->dwMillis == 0 ? Bytes{} : der::implicitTag(0, encodeAccuracyPart(accuracy->dwMillis)),
         accuracy->dwMicros == 0 ? Bytes{} : der::implicitTag(1, encodeAccuracyPart(accuracy->dwMicros))});
}

void putAccuracy(StructBuilder& builder, std::size_t pointerOffset, const der::Element& accuracy) {
    der::Reader reader(accuracy.content);
    CRYPT_TIMESTAMP_ACCURACY parts{};
    if (const auto seconds = reader.readIf(der::tag::Integer)) {
        parts.dwSeconds = der::toUint32(*seconds);
    }
    if (const auto millis = reader.readIf(der::tag::context(0))) {
        parts.dwMillis = der::toUint32(*millis);
    }
    if (const auto micros = reader.readIf(der::tag::context(1))) {
        parts.dwMicros = der::toUint32(*micros);
    }
    reader.finish();
    const std::size_t at = builder.reserve(sizeof parts, alignof(CRYPT_TIMESTAMP_ACCURACY));
    builder.at<CRYPT_TIMESTAMP_ACCURACY>(at) = parts;
    builder.point(pointerOffset, at);
}

Bytes encodeFreeText(const wchar_t* text) {
    const auto utf8 = text == nullptr ? std::nullopt : utf8FromWide(text);
    if (!utf8) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    return der::utf8String(*utf8);
}

void putFreeText(StructBuilder& builder, const der::Element& texts) {
    const auto elements = elementsOf(texts.content);
    std::size_t at = putArray<wchar_t*>(builder, offsetof(CRYPT_TIMESTAMP_RESPONSE, cFreeText),
                                        offsetof(CRYPT_TIMESTAMP_RESPONSE, rgFreeText), elements.size());
    for (const der::Element& element : elements) {
        const ByteView content = contentOf(element, der::tag::Utf8String);
        const auto text = wideFromUtf8({reinterpret_cast<const char*>(content.data()), content.size()});
        if (!text || text->find(L'\0') != std::wstring::npos) {
            fail(capi::CRYPT_E_ASN1_UTF8);
        }
        builder.text(at, *text);
        at += sizeof(wchar_t*);
    }
}

Bytes encodeStatus(const CRYPT_TIMESTAMP_RESPONSE& info) {
    std::vector<Bytes> texts;
    for (const wchar_t* const text : arrayArgument(info.cFreeText, info.rgFreeText)) {
        texts.push_back(encodeFreeText(text));
    }
    return der::sequence({der::integer(std::int64_t{info.dwStatus}), texts.empty() ? Bytes{} : der::sequence(texts),
                          optionalNamedBitsArgument(info.FailureInfo)});
}

void putStatus(StructBuilder& builder, const der::Element& status) {
    der::Reader reader(contentOf(status, der::tag::Sequence));
    builder.at<CRYPT_TIMESTAMP_RESPONSE>(0).dwStatus = der::toUint32(reader.read(der::tag::Integer));
    if (const auto texts = reader.readIf(der::tag::Sequence)) {
        putFreeText(builder, *texts);
    }
    if (const auto failure = reader.readIf(der::tag::BitString)) {
        putBits(builder, offsetof(CRYPT_TIMESTAMP_RESPONSE, FailureInfo), *failure);
    }
    reader.finish();
}

} // namespace

Bytes encodeTimestampRequest(const CRYPT_TIMESTAMP_REQUEST& info) {
    return der::sequence({der::integer(std::int64_t{info.dwVersion}),
                          encodeImprint(info.HashAlgorithm, info.HashedMessage),
                          info.pszTSAPolicyId == nullptr ? Bytes{} : oidArgument(info.pszTSAPolicyId),
                          encodeNonce(info.Nonce), info.fCertReq != 0 ? der::boolean(true) : Bytes{},
                          encodeTaggedExtensions(0, info.cExtension, info.rgExtension)});
}

void decodeTimestampRequest(const der::Element& value, StructBuilder& out) {
    der::Reader reader(contentOf(value, der::tag::Sequence));
    out.at<CRYPT_TIMESTAMP_REQUEST>(0).dwVersion = der::toUint32(reader.read(der::tag::Integer));
    putImprint(out, offsetof(CRYPT_TIMESTAMP_REQUEST, HashAlgorithm), offsetof(CRYPT_TIMESTAMP_REQUEST, HashedMessage),
               reader.read());
    if (const auto policy = reader.readIf(der::tag::ObjectIdentifier)) {
        putOid(out, offsetof(CRYPT_TIMESTAMP_REQUEST, pszTSAPolicyId), *policy);
    }
    if (const auto nonce = reader.readIf(der::tag::Integer)) {
        putNonce(out, offsetof(CRYPT_TIMESTAMP_REQUEST, Nonce), *nonce);
    }
    if (const auto wanted = reader.readIf(der::tag::Boolean)) {
        out.at<CRYPT_TIMESTAMP_REQUEST>(0).fCertReq = der::toBool(*wanted) ? 1 : 0;
    }
    if (const auto extensions = reader.readIf(der::tag::contextConstructed(0))) {
        putExtensions(out, offsetof(CRYPT_TIMESTAMP_REQUEST, cExtension),
                      offsetof(CRYPT_TIMESTAMP_REQUEST, rgExtension), extensions->content);
    }
    reader.finish();
}

Bytes encodeTimestampResponse(const CRYPT_TIMESTAMP_RESPONSE& info) {
    return der::sequence({encodeStatus(info), info.ContentInfo.cbData == 0 ? Bytes{} : anyArgument(info.ContentInfo)});
}

void decodeTimestampResponse(const der::Element& value, StructBuilder& out) {
    der::Reader reader(contentOf(value, der::tag::Sequence));
    putStatus(out, reader.read());
    const ByteView token = reader.rest();
    if (!token.empty() && (token.front() != der::tag::Sequence || !der::isOneBerValue(token))) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    out.blob(offsetof(CRYPT_TIMESTAMP_RESPONSE, ContentInfo), token);
}

Bytes encodeTimestampInfo(const CRYPT_TIMESTAMP_INFO& info) {
    return der::sequence({der::integer(std::int64_t{info.dwVersion}), oidArgument(info.pszTSAPolicyId),
                          encodeImprint(info.HashAlgorithm, info.HashedMessage), integerArgument(info.SerialNumber),
                          encodeGeneralizedTimeWithFraction(info.ftTime), encodeAccuracy(info.pvAccuracy),
                          info.fOrdering != 0 ? der::boolean(true) : Bytes{}, encodeNonce(info.Nonce),
                          info.Tsa.cbData == 0 ? Bytes{} : der::explicitTag(0, anyArgument(info.Tsa)),
                          encodeTaggedExtensions(1, info.cExtension, info.rgExtension)});
}

void decodeTimestampInfo(const der::Element& value, StructBuilder& out) {
    der::Reader reader(contentOf(value, der::tag::Sequence));
    out.at<CRYPT_TIMESTAMP_INFO>(0).dwVersion = der::toUint32(reader.read(der::tag::Integer));
    putOid(out, offsetof(CRYPT_TIMESTAMP_INFO, pszTSAPolicyId), reader.read(der::tag::ObjectIdentifier));
    putImprint(out, offsetof(CRYPT_TIMESTAMP_INFO, HashAlgorithm), offsetof(CRYPT_TIMESTAMP_INFO, HashedMessage),
               reader.read());
    putInteger(out, offsetof(CRYPT_TIMESTAMP_INFO, SerialNumber), reader.read(der::tag::Integer));
    out.at<CRYPT_TIMESTAMP_INFO>(0).ftTime = decodeGeneralizedTime(reader.read(der::tag::GeneralizedTime).content);
    if (const auto accuracy = reader.readIf(der::tag::Sequence)) {
        putAccuracy(out, offsetof(CRYPT_TIMESTAMP_INFO, pvAccuracy), *accuracy);
    }
    if (const auto ordering = reader.readIf(der::tag::Boolean)) {
        out.at<CRYPT_TIMESTAMP_INFO>(0).fOrdering = der::toBool(*ordering) ? 1 : 0;
    }
    if (const auto nonce = reader.readIf(der::tag::Integer)) {
        putNonce(out, offsetof(CRYPT_TIMESTAMP_INFO, Nonce), *nonce);
    }
    if (const auto tsa = reader.readIf(der::tag::contextConstructed(0))) {
        out.blob(offsetof(CRYPT_TIMESTAMP_INFO, Tsa), der::readOnly(tsa->content).whole);
    }
    if (const auto extensions = reader.readIf(der::tag::contextConstructed(1))) {
        putExtensions(out, offsetof(CRYPT_TIMESTAMP_INFO, cExtension), offsetof(CRYPT_TIMESTAMP_INFO, rgExtension),
                      extensions->content);
    }
    reader.finish();
}

} // namespace klunortredi::csp
