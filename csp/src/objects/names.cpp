#include "objects/codecs.hpp"
#include "objects/parts.hpp"
#include "objects/string_value.hpp"
#include "x509/blob.hpp"

namespace klunortredi::csp {

namespace {

Bytes encodeNameAttribute(const CERT_RDN_ATTR& attribute) {
    return der::sequence(
        {oidArgument(attribute.pszObjId), encodeAttributeValue(attribute.dwValueType, attribute.Value)});
}

void decodeNameAttributes(const der::Element& rdn, std::size_t offset, StructBuilder& out) {
    const auto attributes = elementsOf(contentOf(rdn, der::tag::Set));
    if (attributes.empty()) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    std::size_t at = putArray<CERT_RDN_ATTR>(out, offset + offsetof(CERT_RDN, cRDNAttr),
                                             offset + offsetof(CERT_RDN, rgRDNAttr), attributes.size());
    for (const der::Element& attribute : attributes) {
        der::Reader reader(contentOf(attribute, der::tag::Sequence));
        putOid(out, at + offsetof(CERT_RDN_ATTR, pszObjId), reader.read(der::tag::ObjectIdentifier));
        buildStringValue(out, at + offsetof(CERT_RDN_ATTR, dwValueType), at + offsetof(CERT_RDN_ATTR, Value),
                         reader.read());
        reader.finish();
        at += sizeof(CERT_RDN_ATTR);
    }
}

std::wstring_view textArgument(const wchar_t* text) {
    if (text == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return text;
}

Bytes encodeOtherName(const CERT_OTHER_NAME* other) {
    if (other == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return der::implicitTag(
        0, der::sequence({oidArgument(other->pszObjId), der::explicitTag(0, anyArgument(other->Value))}));
}

/// A kind of GeneralName: its number in the CryptoAPI is its tag's number plus one.
constexpr unsigned generalNameTag(DWORD choice) {
    return choice - 1;
}

Bytes encodeAlternateNameEntry(const CERT_ALT_NAME_ENTRY& entry) {
    const unsigned number = generalNameTag(entry.dwAltNameChoice);
    switch (entry.dwAltNameChoice) {
    case capi::CERT_ALT_NAME_OTHER_NAME:
        return encodeOtherName(entry.u.pOtherName);
    case capi::CERT_ALT_NAME_RFC822_NAME:
    case capi::CERT_ALT_NAME_DNS_NAME:
    case capi::CERT_ALT_NAME_URL:
        return der::element(der::tag::context(number), ia5FromWide(textArgument(entry.u.pwszURL)));
    case capi::CERT_ALT_NAME_DIRECTORY_NAME:
        return der::explicitTag(number, nameArgument(entry.u.DirectoryName));
    case capi::CERT_ALT_NAME_X400_ADDRESS:
    case capi::CERT_ALT_NAME_EDI_PARTY_NAME: {
        Bytes whole = anyArgument(entry.u.DirectoryName);
        if (whole.front() != der::tag::contextConstructed(number)) {
            fail(capi::CRYPT_E_BAD_ENCODE);
        }
        return whole;
    }
    case capi::CERT_ALT_NAME_IP_ADDRESS:
        return der::element(der::tag::context(number), blobView(entry.u.IPAddress));
    case capi::CERT_ALT_NAME_REGISTERED_ID:
        return der::implicitTag(number, oidArgument(entry.u.pszRegisteredID));
    default:
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
}

void decodeOtherName(const der::Element& name, std::size_t pointerOffset, StructBuilder& out) {
    der::Reader reader(name.content);
    const der::Element oid = reader.read(der::tag::ObjectIdentifier);
    const der::Element value = der::readOnly(reader.read(der::tag::contextConstructed(0)).content);
    reader.finish();
    const std::size_t other = out.reserve(sizeof(CERT_OTHER_NAME), alignof(CERT_OTHER_NAME));
    out.point(pointerOffset, other);
    putOid(out, other + offsetof(CERT_OTHER_NAME, pszObjId), oid);
    out.blob(other + offsetof(CERT_OTHER_NAME, Value), value.whole);
}

void decodeIa5(const der::Element& name, std::size_t pointerOffset, StructBuilder& out) {
    const auto text = textOfString({der::tag::Ia5String, name.content, name.whole});
    // The text goes out terminated by a zero, so one inside would hide what follows it.
    if (!text || text->find(L'\0') != std::wstring::npos) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    out.text(pointerOffset, *text);
}

void decodeAlternateNameEntry(const der::Element& name, std::size_t offset, StructBuilder& out) {
    const std::size_t value = offset + offsetof(CERT_ALT_NAME_ENTRY, u);
    constexpr unsigned tagNumber = 0x1F;
    const DWORD choice = (name.tag & tagNumber) + 1;
    out.at<CERT_ALT_NAME_ENTRY>(offset).dwAltNameChoice = choice;
    switch (name.tag) {
    case der::tag::contextConstructed(0):
        return decodeOtherName(name, value, out);
    case der::tag::context(1):
    case der::tag::context(2):
    case der::tag::context(6):
        return decodeIa5(name, value, out);
    case der::tag::contextConstructed(3):
    case der::tag::contextConstructed(5):
        return out.blob(value, name.whole);
    case der::tag::contextConstructed(4):
        return out.blob(value, der::readOnly(name.content, der::tag::Sequence).whole);
    case der::tag::context(7):
        return out.blob(value, name.content);
    case der::tag::context(8):
        return putOid(out, value, name);
    default:
        fail(capi::CRYPT_E_ASN1_BADTAG);
    }
}

} // namespace

Bytes encodeName(const CERT_NAME_INFO& info) {
    std::vector<Bytes> rdns;
    for (const CERT_RDN& rdn : arrayArgument(info.cRDN, info.rgRDN)) {
        std::vector<Bytes> attributes;
        for (const CERT_RDN_ATTR& attribute : arrayArgument(rdn.cRDNAttr, rdn.rgRDNAttr)) {
            attributes.push_back(encodeNameAttribute(attribute));
        }
        if (attributes.empty()) {
            fail(capi::CRYPT_E_BAD_ENCODE);
        }
        rdns.push_back(der::setOf(std::move(attributes)));
    }
    return der::sequence(rdns);
}

void decodeName(const der::Element& value, StructBuilder& out) {
    const auto rdns = elementsOf(contentOf(value, der::tag::Sequence));
    std::size_t at =
        putArray<CERT_RDN>(out, offsetof(CERT_NAME_INFO, cRDN), offsetof(CERT_NAME_INFO, rgRDN), rdns.size());
    for (const der::Element& rdn : rdns) {
        decodeNameAttributes(rdn, at, out);
        at += sizeof(CERT_RDN);
    }
}

Bytes encodeAlternateName(const CERT_ALT_NAME_INFO& info) {
    std::vector<Bytes> names;
    for (const CERT_ALT_NAME_ENTRY& entry : arrayArgument(info.cAltEntry, info.rgAltEntry)) {
        names.push_back(encodeAlternateNameEntry(entry));
    }
    return der::sequence(names);
}

void decodeAlternateName(const der::Element& value, StructBuilder& out) {
    const auto names = elementsOf(contentOf(value, der::tag::Sequence));
    std::size_t at = putArray<CERT_ALT_NAME_ENTRY>(out, offsetof(CERT_ALT_NAME_INFO, cAltEntry),
                                                   offsetof(CERT_ALT_NAME_INFO, rgAltEntry), names.size());
    for (const der::Element& name : names) {
        decodeAlternateNameEntry(name, at, out);
        at += sizeof(CERT_ALT_NAME_ENTRY);
    }
}

} // namespace klunortredi::csp
