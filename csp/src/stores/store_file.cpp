#include "stores/store_file.hpp"

#include "core/error.hpp"
#include "core/hex.hpp"
#include "core/ossl.hpp"
#include "text/unicode.hpp"
#include "x509/subject_text.hpp"

#include <openssl/pem.h>

#include <array>
#include <charconv>
#include <cstring>

namespace klunortredi::csp {

namespace {

constexpr std::string_view friendlyName = "friendly-name";
constexpr std::string_view description = "description";
constexpr std::string_view keyContainer = "key-container";
constexpr std::string_view keyProvider = "key-provider";
constexpr std::string_view keyProviderType = "key-provider-type";
constexpr std::string_view keyFlags = "key-flags";
constexpr std::string_view keySpec = "key-spec";
constexpr std::string_view keyParameter = "key-parameter";
constexpr std::string_view property = "property-";

struct TextProperty {
    std::string_view label;
    DWORD id;
};
/// Properties that are zero-terminated wide text.
constexpr std::array<TextProperty, 2> textProperties{{
    {friendlyName, capi::CERT_FRIENDLY_NAME_PROP_ID},
    {description, capi::CERT_DESCRIPTION_PROP_ID},
}};

std::string escape(std::string_view utf8) {
    std::string text;
    for (const char character : utf8) {
        const auto octet = static_cast<std::uint8_t>(character);
        constexpr std::uint8_t firstPrintable = 0x20;
        constexpr std::uint8_t erase = 0x7F;
        if (octet < firstPrintable || octet == erase || character == '\\') {
            text += '\\' + toHex({&octet, 1});
        } else {
            text += character;
        }
    }
    return text;
}

std::optional<std::wstring> unescape(std::string_view text) {
    std::string utf8;
    while (!text.empty()) {
        if (text.front() != '\\') {
            utf8 += text.front();
            text.remove_prefix(1);
            continue;
        }
        const auto octet = fromHex(text.substr(1, 2));
        if (!octet || octet->size() != 1) {
            return std::nullopt;
        }
        utf8 += static_cast<char>(octet->front());
        text.remove_prefix(3);
    }
    return wideFromUtf8(utf8);
}

/// The text of a zero-terminated wide string in a blob; nothing when the blob is something else.
std::optional<std::string> blobText(const Bytes& blob) {
    if (blob.empty() || blob.size() % sizeof(wchar_t) != 0) {
        return std::nullopt;
    }
    std::wstring wide(blob.size() / sizeof(wchar_t), L'\0');
    std::memcpy(wide.data(), blob.data(), blob.size());
    if (wide.find(L'\0') != wide.size() - 1) {
        return std::nullopt;
    }
    wide.pop_back();
    return utf8FromWide(wide);
}

Bytes textBlob(const std::wstring& text) {
    const auto* const octets = reinterpret_cast<const std::uint8_t*>(text.c_str()); // NOLINT
    return {octets, octets + (text.size() + 1) * sizeof(wchar_t)};
}

class Writer {
public:
    void line(std::string_view label, std::string_view value) {
        text_.append(label).append(": ").append(value).append("\n");
    }
    void number(std::string_view label, DWORD value) { line(label, std::to_string(value)); }
    void comment(std::string_view value) { text_.append("# ").append(value).append("\n"); }
    void wide(std::string_view label, const std::optional<std::wstring>& value) {
        if (!value) {
            return;
        }
        const auto utf8 = utf8FromWide(*value);
        if (!utf8) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        line(label, escape(*utf8));
    }
    [[nodiscard]] const std::string& text() const noexcept { return text_; }

private:
    std::string text_;
};

void writeKeyProvider(Writer& out, const KeyProviderInfo& info) {
    out.wide(keyContainer, info.container);
    out.wide(keyProvider, info.provider);
    out.number(keyProviderType, info.providerType);
    out.number(keyFlags, info.flags);
    out.number(keySpec, info.keySpec);
    for (const auto& parameter : info.parameters) {
        if (parameter.id != capi::PP_KEYEXCHANGE_PIN && parameter.id != capi::PP_SIGNATURE_PIN) {
            out.line(keyParameter, std::to_string(parameter.id) + ' ' + std::to_string(parameter.flags) + ' ' +
                                       toHex(parameter.data));
        }
    }
}

void writeBlob(Writer& out, DWORD id, const Bytes& value) {
    for (const TextProperty& row : textProperties) {
        const auto text = row.id == id ? blobText(value) : std::nullopt;
        if (text) {
            return out.line(row.label, escape(*text));
        }
    }
    out.line(std::string(property) + std::to_string(id), toHex(value));
}

std::string pem(ByteView der) {
    const ossl::Bio out(BIO_new(BIO_s_mem()));
    if (!out || PEM_write_bio(out.get(), PEM_STRING_X509, "", der.data(), static_cast<long>(der.size())) <= 0) {
        fail(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
    const char* data = nullptr;
    const long size = BIO_get_mem_data(out.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

template <class Number>
bool readNumber(std::string_view text, Number& value) {
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc{} && result.ptr == end;
}

/// Cuts `text` at the first `separator`; what is behind it stays in `text`.
std::string_view cut(std::string_view& text, std::string_view separator) {
    const std::size_t at = std::min(text.find(separator), text.size());
    const std::string_view head = text.substr(0, at);
    text.remove_prefix(std::min(at + separator.size(), text.size()));
    return head;
}

bool readParameter(std::string_view value, KeyProviderInfo& info) {
    KeyProviderInfo::Parameter parameter;
    const bool numbers = readNumber(cut(value, " "), parameter.id) && readNumber(cut(value, " "), parameter.flags);
    auto data = fromHex(value);
    if (!numbers || !data) {
        return false;
    }
    parameter.data = std::move(*data);
    info.parameters.push_back(std::move(parameter));
    return true;
}

bool readText(std::string_view value, std::optional<std::wstring>& text) {
    text = unescape(value);
    return text.has_value();
}

/// Whether `label` is one of the key provider's, and its value well-formed.
bool readKeyProvider(std::string_view label, std::string_view value, Properties& properties) {
    KeyProviderInfo& info = properties.keyProvider ? *properties.keyProvider : properties.keyProvider.emplace();
    if (label == keyContainer) {
        return readText(value, info.container);
    }
    if (label == keyProvider) {
        return readText(value, info.provider);
    }
    if (label == keyParameter) {
        return readParameter(value, info);
    }
    return (label == keyProviderType && readNumber(value, info.providerType)) ||
           (label == keyFlags && readNumber(value, info.flags)) ||
           (label == keySpec && readNumber(value, info.keySpec));
}

bool readProperty(std::string_view label, std::string_view value, Properties& properties) {
    for (const TextProperty& row : textProperties) {
        if (row.label == label) {
            const auto text = unescape(value);
            if (text) {
                properties.blobs[row.id] = textBlob(*text);
            }
            return text.has_value();
        }
    }
    DWORD id = 0;
    if (label.starts_with(property) && readNumber(label.substr(property.size()), id)) {
        auto octets = fromHex(value);
        if (octets) {
            properties.blobs[id] = std::move(*octets);
        }
        return octets.has_value();
    }
    return readKeyProvider(label, value, properties);
}

std::optional<Bytes> readPem(std::string_view text) {
    const ossl::ErrorMark mark;
    const ossl::Bio in(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    unsigned char* data = nullptr;
    long size = 0;
    if (!in || PEM_bytes_read_bio(&data, &size, nullptr, PEM_STRING_X509, in.get(), nullptr, nullptr) != 1) {
        return std::nullopt;
    }
    Bytes der(data, data + size);
    OPENSSL_free(data);
    return der;
}

} // namespace

std::string formatStoreFile(const Certificate& certificate, const Properties& properties) {
    Writer out;
    out.comment(escape(utf8FromWide(subjectText(certificate)).value_or(std::string{})));
    if (properties.keyProvider) {
        writeKeyProvider(out, *properties.keyProvider);
    }
    for (const auto& [id, value] : properties.blobs) {
        writeBlob(out, id, value);
    }
    return out.text() + pem(certificate.encoded());
}

std::optional<StoreFile> parseStoreFile(std::string_view text) {
    StoreFile file;
    std::string_view rest = text;
    while (!rest.starts_with("-----BEGIN ")) {
        if (rest.empty()) {
            return std::nullopt;
        }
        std::string_view value = cut(rest, "\n");
        if (value.empty() || value.starts_with('#')) {
            continue;
        }
        const std::string_view label = cut(value, ": ");
        if (!readProperty(label, value, file.properties)) {
            return std::nullopt;
        }
    }
    auto der = readPem(rest);
    if (!der) {
        return std::nullopt;
    }
    file.der = std::move(*der);
    return file;
}

} // namespace klunortredi::csp
