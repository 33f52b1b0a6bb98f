// Names as text both ways: the input as the DER of a name, which is written as text in every style; and as the text of
// a value, which is encoded, written and found again. Built with libFuzzer, and replayed by a test.

#include "capi/constants.hpp"
#include "core/bytes.hpp"
#include "exports/export.hpp"
#include "require.hpp"
#include "text/unicode.hpp"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

using klunortredi::csp::Bytes;
namespace api = klunortredi::csp::exports;

constexpr std::array<DWORD, 5> further{0, capi::CERT_NAME_STR_NO_QUOTING_FLAG, capi::CERT_NAME_STR_SEMICOLON_FLAG,
                                       capi::CERT_NAME_STR_CRLF_FLAG, capi::CERT_NAME_STR_REVERSE_FLAG};

std::wstring written(Bytes& der, DWORD style) {
    CERT_NAME_BLOB name{static_cast<DWORD>(der.size()), der.data()};
    const DWORD size = api::CertNameToStrW(capi::X509_ASN_ENCODING, &name, style, nullptr, 0);
    if (size == 0) {
        return {};
    }
    std::wstring text(size, L'?');
    require(api::CertNameToStrW(capi::X509_ASN_ENCODING, &name, style, text.data(), size) == size,
            "a name's text has the size that was reported");
    require(text.back() == L'\0' && text.find(L'\0') == text.size() - 1, "a name's text ends with its only zero");
    text.pop_back();
    return text;
}

void writeEveryStyle(Bytes der) {
    if (written(der, capi::CERT_SIMPLE_NAME_STR).empty()) {
        return; // not a name: no style changes that, and refusals cost most of the time
    }
    for (const DWORD format : {capi::CERT_SIMPLE_NAME_STR, capi::CERT_OID_NAME_STR, capi::CERT_X500_NAME_STR}) {
        for (const DWORD flag : further) {
            written(der, format | flag);
        }
    }
}

/// The name of one organization; empty for a text that a name cannot hold.
Bytes nameOf(void* text, std::size_t octets) {
    CERT_RDN_ATTR attribute{const_cast<char*>("2.5.4.10"),
                            capi::CERT_RDN_UTF8_STRING,
                            {static_cast<DWORD>(octets), static_cast<BYTE*>(text)}};
    CERT_RDN rdn{1, &attribute};
    const CERT_NAME_INFO info{1, &rdn};
    const auto* const type = reinterpret_cast<const char*>(std::uintptr_t{capi::X509_NAME}); // NOLINT
    DWORD size = 0;
    if (api::CryptEncodeObject(capi::X509_ASN_ENCODING, type, &info, nullptr, &size) == 0) {
        return {};
    }
    Bytes der(size);
    require(api::CryptEncodeObject(capi::X509_ASN_ENCODING, type, &info, der.data(), &size) != 0,
            "what has a size encodes");
    der.resize(size);
    return der;
}

void findAgain(std::string utf8) {
    const auto wide = klunortredi::csp::wideFromUtf8(utf8);
    Bytes fromOctets = nameOf(utf8.data(), utf8.size());
    if (!wide || utf8.find('\0') != std::string::npos) {
        return;
    }
    std::wstring text = *wide;
    Bytes fromWide = nameOf(text.data(), text.size() * sizeof(wchar_t));
    require(!fromWide.empty(), "a text of Unicode has an encoding");
    require(fromOctets == fromWide, "octets and wide characters of one text are encoded alike");
    require(written(fromWide, capi::CERT_OID_NAME_STR | capi::CERT_NAME_STR_NO_QUOTING_FLAG) == L"2.5.4.10=" + *wide,
            "a value is found again");
    std::wstring quoted = written(fromWide, capi::CERT_OID_NAME_STR).substr(std::wstring_view(L"2.5.4.10=").size());
    if (quoted.size() > 1 && quoted.front() == L'"') {
        quoted = quoted.substr(1, quoted.size() - 2);
        for (auto at = quoted.find(L"\"\""); at != std::wstring::npos; at = quoted.find(L"\"\"", at + 1)) {
            quoted.erase(at, 1);
        }
    }
    require(quoted == *wide, "a quoted value is found again");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    writeEveryStyle({data, data + size});
    findAgain({reinterpret_cast<const char*>(data), size});
    return 0;
}
