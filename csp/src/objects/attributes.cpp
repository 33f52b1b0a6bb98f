#include "objects/codecs.hpp"
#include "objects/parts.hpp"
#include "objects/string_value.hpp"

#include <string_view>

namespace klunortredi::csp {

namespace {

/// A null pointer is the empty text.
Bytes encodeText(const wchar_t* text) {
    return encodeBmpString(text == nullptr ? std::wstring_view{} : std::wstring_view(text));
}

void putText(StructBuilder& builder, std::size_t pointerOffset, const der::Element& value) {
    const std::wstring text = decodeBmpString(value);
    // The text goes out terminated by a zero, so one inside would hide what follows it.
    if (text.find(L'\0') != std::wstring::npos) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    builder.text(pointerOffset, text);
}

} // namespace

Bytes encodeAttribute(const CRYPT_ATTRIBUTE& info) {
    return attributeArgument(info);
}

void decodeAttribute(const der::Element& value, StructBuilder& out) {
    putAttribute(out, 0, value);
}

Bytes encodeNameValuePair(const CRYPT_ENROLLMENT_NAME_VALUE_PAIR& info) {
    return der::sequence({encodeText(info.pwszName), encodeText(info.pwszValue)});
}

void decodeNameValuePair(const der::Element& value, StructBuilder& out) {
    der::Reader reader(contentOf(value, der::tag::Sequence));
    putText(out, offsetof(CRYPT_ENROLLMENT_NAME_VALUE_PAIR, pwszName), reader.read());
    putText(out, offsetof(CRYPT_ENROLLMENT_NAME_VALUE_PAIR, pwszValue), reader.read());
    reader.finish();
}

Bytes encodeCspProvider(const CRYPT_CSP_PROVIDER& info) {
    return der::sequence({der::integer(std::int64_t{info.dwKeySpec}), encodeText(info.pwszProviderName),
                          bitStringArgument(info.Signature)});
}

void decodeCspProvider(const der::Element& value, StructBuilder& out) {
    der::Reader reader(contentOf(value, der::tag::Sequence));
    out.at<CRYPT_CSP_PROVIDER>(0).dwKeySpec = der::toUint32(reader.read(der::tag::Integer));
    putText(out, offsetof(CRYPT_CSP_PROVIDER, pwszProviderName), reader.read());
    putBits(out, offsetof(CRYPT_CSP_PROVIDER, Signature), reader.read(der::tag::BitString));
    reader.finish();
}

} // namespace klunortredi::csp
