#include "objects/string_value.hpp"

#include "capi/constants.hpp"
#include "core/error.hpp"
#include "objects/utf8_argument.hpp"
#include "text/unicode.hpp"
#include "x509/blob.hpp"

#include <algorithm>
#include <array>
#include <cwchar>

namespace klunortredi::csp {

namespace {

bool isNumeric(BYTE octet) {
    return (octet >= '0' && octet <= '9') || octet == ' ';
}

bool isPrintable(BYTE octet) {
    constexpr std::string_view signs = "'()+,-./:=?";
    return isNumeric(octet) || (octet >= 'A' && octet <= 'Z') || (octet >= 'a' && octet <= 'z') ||
           signs.find(static_cast<char>(octet)) != std::string_view::npos;
}

bool isIa5(BYTE octet) {
    return octet < 0x80;
}

bool isVisible(BYTE octet) {
    return octet >= 0x20 && octet <= 0x7E;
}

bool isAny(BYTE /*octet*/) {
    return true;
}

/// A string type: its number in the CryptoAPI, its tag, the octets of a character (0: UTF-8, no character string: 1),
/// its alphabet (X.680, 41) and the code for what is not in it.
struct StringType {
    DWORD valueType;
    std::uint8_t tag;
    std::size_t width;
    bool (*allows)(BYTE);
    DWORD error;
};

using namespace capi;
constexpr std::array stringTypes{
    StringType{CERT_RDN_OCTET_STRING, der::tag::OctetString, 1, isAny, CRYPT_E_BAD_ENCODE},
    StringType{CERT_RDN_NUMERIC_STRING, der::tag::NumericString, 1, isNumeric, CRYPT_E_INVALID_NUMERIC_STRING},
    StringType{CERT_RDN_PRINTABLE_STRING, der::tag::PrintableString, 1, isPrintable, CRYPT_E_INVALID_PRINTABLE_STRING},
    StringType{CERT_RDN_TELETEX_STRING, der::tag::TeletexString, 1, isAny, CRYPT_E_BAD_ENCODE},
    StringType{CERT_RDN_VIDEOTEX_STRING, der::tag::VideotexString, 1, isAny, CRYPT_E_BAD_ENCODE},
    StringType{CERT_RDN_IA5_STRING, der::tag::Ia5String, 1, isIa5, CRYPT_E_INVALID_IA5_STRING},
    StringType{CERT_RDN_GRAPHIC_STRING, der::tag::GraphicString, 1, isAny, CRYPT_E_BAD_ENCODE},
    StringType{CERT_RDN_VISIBLE_STRING, der::tag::VisibleString, 1, isVisible, CRYPT_E_BAD_ENCODE},
    StringType{CERT_RDN_GENERAL_STRING, der::tag::GeneralString, 1, isAny, CRYPT_E_BAD_ENCODE},
    StringType{CERT_RDN_UNIVERSAL_STRING, der::tag::UniversalString, 4, isAny, CRYPT_E_BAD_ENCODE},
    StringType{CERT_RDN_BMP_STRING, der::tag::BmpString, 2, isAny, CRYPT_E_BAD_ENCODE},
    StringType{CERT_RDN_UTF8_STRING, der::tag::Utf8String, 0, isAny, CRYPT_E_BAD_ENCODE},
};

const StringType& stringType(DWORD valueType) {
    const auto* const found = std::ranges::find(stringTypes, valueType & CERT_RDN_TYPE_MASK, &StringType::valueType);
    if (found == stringTypes.end()) {
        fail(CRYPT_E_BAD_ENCODE);
    }
    return *found;
}

const StringType* stringTypeOfTag(std::uint8_t tag) {
    const auto* const found = std::ranges::find(stringTypes, tag, &StringType::tag);
    return found == stringTypes.end() ? nullptr : found;
}

/// The character at each place of a string of fixed width; nothing when the octets do not come out even.
std::optional<std::wstring> characters(ByteView content, std::size_t width) {
    std::wstring text;
    if (content.size() % width != 0) {
        return std::nullopt;
    }
    for (; !content.empty(); content = content.subspan(width)) {
        char32_t character = 0;
        for (const std::uint8_t octet : content.first(width)) {
            character = (character << 8U) | octet;
        }
        if (!isUnicodeScalar(character)) {
            return std::nullopt;
        }
        text.push_back(static_cast<wchar_t>(character));
    }
    return text;
}

Bytes encodeContent(const StringType& type, ByteView content) {
    if (!std::ranges::all_of(content, type.allows)) {
        fail(type.error);
    }
    if (type.width > 1 && !characters(content, type.width)) {
        fail(CRYPT_E_BAD_ENCODE);
    }
    return der::element(type.tag, content);
}

Bytes encodedBlob(const CRYPTOAPI_BLOB& value) {
    const ByteView encoded = blobView(value);
    if (!der::isOneBerValue(encoded)) {
        fail(CRYPT_E_BAD_ENCODE);
    }
    return {encoded.begin(), encoded.end()};
}

/// Content octets of wide text, `width` octets a character.
Bytes contentOf(std::wstring_view text, std::size_t width, DWORD error) {
    Bytes content;
    content.reserve(text.size() * width);
    for (const wchar_t wide : text) {
        const auto character = static_cast<char32_t>(wide);
        if (!isUnicodeScalar(character) || (width < sizeof character && (character >> (8 * width)) != 0)) {
            fail(error);
        }
        for (std::size_t octet = width; octet-- > 0;) {
            content.push_back(static_cast<std::uint8_t>(character >> (8 * octet)));
        }
    }
    return content;
}

std::wstring wideArgument(const CRYPTOAPI_BLOB& value) {
    const auto* const text = reinterpret_cast<const wchar_t*>(value.pbData);
    if (text == nullptr) {
        if (value.cbData != 0) {
            fail(ERROR_INVALID_PARAMETER);
        }
        return {};
    }
    if (value.cbData % sizeof(wchar_t) != 0) {
        fail(CRYPT_E_BAD_ENCODE);
    }
    return value.cbData == 0 ? std::wstring(text) : std::wstring(text, value.cbData / sizeof(wchar_t));
}

void putWide(StructBuilder& builder, std::size_t blobOffset, std::wstring_view text) {
    const std::size_t at = builder.append(text);
    builder.at<CRYPTOAPI_BLOB>(blobOffset).cbData = static_cast<DWORD>(text.size() * sizeof(wchar_t));
    builder.point(blobOffset + offsetof(CRYPTOAPI_BLOB, pbData), at);
}

} // namespace

Bytes encodeStringValue(DWORD valueType, const CRYPTOAPI_BLOB& value) {
    switch (valueType & CERT_RDN_TYPE_MASK) {
    case CERT_RDN_ENCODED_BLOB:
        return encodedBlob(value);
    case CERT_RDN_UTF8_STRING:
        return der::utf8String(utf8Argument(value));
    default:
        return encodeContent(stringType(valueType), blobView(value));
    }
}

Bytes encodeAttributeValue(DWORD valueType, const CRYPTOAPI_BLOB& value) {
    return (valueType & CERT_RDN_TYPE_MASK) == CERT_RDN_UTF8_STRING ? der::utf8String(utf8ArgumentInOctets(value))
                                                                    : encodeStringValue(valueType, value);
}

Bytes encodeWideStringValue(DWORD valueType, const CRYPTOAPI_BLOB& value) {
    switch (valueType & CERT_RDN_TYPE_MASK) {
    case CERT_RDN_ENCODED_BLOB:
        return encodedBlob(value);
    case CERT_RDN_UTF8_STRING: {
        const auto utf8 = utf8FromWide(wideArgument(value));
        if (!utf8) {
            fail(CRYPT_E_BAD_ENCODE);
        }
        return der::utf8String(*utf8);
    }
    default:
        const StringType& type = stringType(valueType);
        return encodeContent(type, contentOf(wideArgument(value), type.width, type.error));
    }
}

void buildStringValue(StructBuilder& builder, std::size_t typeOffset, std::size_t blobOffset,
                      const der::Element& value) {
    const StringType* const type = stringTypeOfTag(value.tag);
    builder.at<DWORD>(typeOffset) = type == nullptr ? CERT_RDN_ENCODED_BLOB : type->valueType;
    if (type != nullptr && type->valueType == CERT_RDN_UTF8_STRING) {
        const auto text = textOfString(value);
        if (!text) {
            fail(CRYPT_E_ASN1_UTF8);
        }
        putWide(builder, blobOffset, *text);
    } else {
        builder.blob(blobOffset, type == nullptr ? value.whole : value.content);
    }
}

void buildWideStringValue(StructBuilder& builder, std::size_t typeOffset, std::size_t blobOffset,
                          const der::Element& value) {
    const StringType* const type = stringTypeOfTag(value.tag);
    if (type == nullptr || type->valueType == CERT_RDN_OCTET_STRING) {
        builder.at<DWORD>(typeOffset) = CERT_RDN_ENCODED_BLOB;
        builder.blob(blobOffset, value.whole);
        return;
    }
    const auto text = textOfString(value);
    if (!text) {
        fail(type->valueType == CERT_RDN_UTF8_STRING ? CRYPT_E_ASN1_UTF8 : CRYPT_E_ASN1_CORRUPT);
    }
    builder.at<DWORD>(typeOffset) = type->valueType;
    putWide(builder, blobOffset, *text);
}

std::optional<std::wstring> textOfString(const der::Element& value) {
    const StringType* const type = stringTypeOfTag(value.tag);
    if (type == nullptr || type->valueType == CERT_RDN_OCTET_STRING ||
        !std::ranges::all_of(value.content, type->allows)) {
        return std::nullopt;
    }
    if (type->width != 0) {
        return characters(value.content, type->width);
    }
    return wideFromUtf8({reinterpret_cast<const char*>(value.content.data()), value.content.size()});
}

Bytes encodeBmpString(std::wstring_view text) {
    return der::element(der::tag::BmpString, contentOf(text, 2, CRYPT_E_BAD_ENCODE));
}

std::wstring decodeBmpString(const der::Element& value) {
    if (value.tag != der::tag::BmpString) {
        fail(CRYPT_E_ASN1_BADTAG);
    }
    const auto text = textOfString(value);
    if (!text) {
        fail(CRYPT_E_ASN1_CORRUPT);
    }
    return *text;
}

Bytes ia5FromWide(std::wstring_view text) {
    Bytes content = contentOf(text, 1, CRYPT_E_INVALID_IA5_STRING);
    if (!std::ranges::all_of(content, isIa5)) {
        fail(CRYPT_E_INVALID_IA5_STRING);
    }
    return content;
}

} // namespace klunortredi::csp
