// Subjects as a user writes them: any text is encoded or refused, and values in quotes or with backslashes are found
// again in the name. Built with libFuzzer, and replayed by a test.

#include "csr_parts.hpp"
#include "require.hpp"

#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/exception/exception.hpp"
#include "orvik/plugin/tools.hpp"

#include <openssl/x509.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace plugin = orvik::plugin;

constexpr std::size_t mostValues = 16;
constexpr const char* organization = "2.5.4.10";

struct FreeName {
    void operator()(X509_NAME* name) const { X509_NAME_free(name); }
};

/// DER of the name; empty when the subject is refused.
std::string encoded(const std::string& subject) {
    try {
        return plugin::wincrypt::csr::encodeSubject(subject);
    } catch (const plugin::exception::Exception&) {
        return {};
    } catch (const std::range_error&) { // not UTF-8
        return {};
    }
}

/// UTF-8 of the name's values, in their order.
std::vector<std::string> valuesOf(const std::string& der) {
    const auto* octets = reinterpret_cast<const unsigned char*>(der.data());
    const std::unique_ptr<X509_NAME, FreeName> name(d2i_X509_NAME(nullptr, &octets, static_cast<long>(der.size())));
    require(name != nullptr, "what is encoded is a name");
    std::vector<std::string> values;
    for (int i = 0; i < X509_NAME_entry_count(name.get()); ++i) {
        unsigned char* utf8 = nullptr;
        const int size = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name.get(), i)));
        require(size >= 0, "a value is a text");
        values.emplace_back(reinterpret_cast<char*>(utf8), static_cast<std::size_t>(size));
        OPENSSL_free(utf8);
    }
    return values;
}

std::string inQuotes(const std::string& value) {
    std::string text = "\"";
    for (const char octet : value) {
        text.append(octet == '"' ? 2 : 1, octet);
    }
    return text + '"';
}

std::string withBackslashes(const std::string& value) {
    std::string text;
    for (const char octet : value) {
        text += std::string_view("\\\"=;").find(octet) == std::string_view::npos ? "" : "\\";
        text += octet;
    }
    return text;
}

/// Pieces of the input between zero octets, which no command line has.
std::vector<std::string> pieces(std::string_view input) {
    std::vector<std::string> list;
    while (list.size() < mostValues) {
        const auto end = input.find('\0');
        list.emplace_back(input.substr(0, end));
        if (end == std::string_view::npos) {
            break;
        }
        input.remove_prefix(end + 1);
    }
    return list;
}

bool isUtf8(const std::string& text) {
    try {
        static_cast<void>(plugin::converter::utf8_to_utf16(text));
        return true;
    } catch (const std::range_error&) {
        return false;
    }
}

void findAgain(const std::vector<std::string>& values, std::string (*write)(const std::string&)) {
    std::string subject;
    bool unicode = true;
    for (const std::string& value : values) {
        subject += std::string(organization) + '=' + write(value) + ';';
        unicode = unicode && isUtf8(value);
    }
    const std::string der = encoded(subject);
    require(der.empty() != unicode, "values of Unicode are encoded, and nothing else is");
    require(!unicode || valuesOf(der) == values, "every value is found again");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    std::size_t octets = 0;
    for (const auto& [key, value] : plugin::tools::split(input, "=", ";")) {
        octets += key.size() + value.size();
    }
    require(octets <= input.size(), "splitting adds nothing");
    if (const std::string der = encoded(input); !der.empty()) {
        valuesOf(der);
    }
    const auto values = pieces(input);
    findAgain(values, inQuotes);
    findAgain(values, withBackslashes);
    return 0;
}
