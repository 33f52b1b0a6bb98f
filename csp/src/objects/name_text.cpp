#include "objects/name_text.hpp"

#include "capi/constants.hpp"
#include "objects/oid_info.hpp"
#include "objects/parts.hpp"
#include "objects/string_value.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

constexpr DWORD TypeMask = 0xFFFF; // the flags are above

/// The words around values, as the flags choose them.
class Style {
public:
    explicit Style(DWORD type) : format_(type & TypeMask), quotes_((type & capi::CERT_NAME_STR_NO_QUOTING_FLAG) == 0) {
        if (format_ != capi::CERT_SIMPLE_NAME_STR && format_ != capi::CERT_OID_NAME_STR &&
            format_ != capi::CERT_X500_NAME_STR) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        if ((type & capi::CERT_NAME_STR_CRLF_FLAG) != 0) {
            betweenNames_ = L"\r\n";
        } else if ((type & capi::CERT_NAME_STR_SEMICOLON_FLAG) != 0) {
            betweenNames_ = L"; ";
        }
        if ((type & capi::CERT_NAME_STR_NO_PLUS_FLAG) != 0) {
            betweenValues_ = L" ";
        }
    }

    [[nodiscard]] const wchar_t* betweenNames() const { return betweenNames_; }
    [[nodiscard]] const wchar_t* betweenValues() const { return betweenValues_; }

    /// What stands before a value.
    [[nodiscard]] std::wstring key(const std::string& oid) const {
        const std::wstring dotted(oid.begin(), oid.end());
        if (format_ == capi::CERT_SIMPLE_NAME_STR) {
            return {};
        }
        if (format_ == capi::CERT_OID_NAME_STR) {
            return dotted + L"=";
        }
        const CRYPT_OID_INFO* const known = findOidInfo(oid, capi::CRYPT_RDN_ATTR_OID_GROUP_ID);
        return (known == nullptr ? L"OID." + dotted : std::wstring(known->pwszName)) + L"=";
    }

    [[nodiscard]] std::wstring quoted(const std::wstring& text) const {
        if (!quotes_ || !needsQuotes(text)) {
            return text;
        }
        std::wstring result = L"\"";
        for (const wchar_t character : text) {
            result.append(character == L'"' ? 2 : 1, character);
        }
        return result + L"\"";
    }

private:
    static bool needsQuotes(const std::wstring& text) {
        constexpr std::wstring_view blanks = L" \t\r\n";
        return text.find_first_of(L",+=\"\n<>#;") != std::wstring::npos ||
               (!text.empty() && (blanks.find(text.front()) != std::wstring_view::npos ||
                                  blanks.find(text.back()) != std::wstring_view::npos));
    }

    DWORD format_;
    bool quotes_;
    const wchar_t* betweenNames_ = L", ";
    const wchar_t* betweenValues_ = L" + ";
};

std::wstring hexadecimal(ByteView der) {
    constexpr std::wstring_view digits = L"0123456789ABCDEF";
    std::wstring text = L"#";
    for (const std::uint8_t octet : der) {
        text += digits[octet >> 4U];
        text += digits[octet & 0xFU];
    }
    return text;
}

std::wstring attributeText(const der::Element& attribute, const Style& style) {
    der::Reader reader(contentOf(attribute, der::tag::Sequence));
    const std::string oid = der::toOid(reader.read(der::tag::ObjectIdentifier));
    const der::Element value = reader.read();
    reader.finish();
    const auto text = textOfString(value);
    const bool readable = text && text->find(L'\0') == std::wstring::npos;
    return style.key(oid) + (readable ? style.quoted(*text) : hexadecimal(value.whole));
}

} // namespace

std::wstring nameToText(ByteView name, DWORD type) {
    const Style style(type);
    auto rdns = elementsOf(der::readOnly(name, der::tag::Sequence).content);
    if ((type & capi::CERT_NAME_STR_REVERSE_FLAG) != 0) {
        std::ranges::reverse(rdns);
    }
    std::wstring text;
    const wchar_t* separator = L"";
    for (const der::Element& rdn : rdns) {
        for (const der::Element& attribute : elementsOf(contentOf(rdn, der::tag::Set))) {
            text.append(separator).append(attributeText(attribute, style));
            separator = style.betweenValues();
        }
        separator = style.betweenNames();
    }
    return text;
}

} // namespace klunortredi::csp
