#include "crypto/wincrypt/certificate.hpp"

#include "lenient.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/hex.hpp"
#include "orvik/plugin/tools.hpp"

#include <boost/utility/string_view.hpp>

#include <cstring>
#include <exception>
#include <set>
#include <string>
#include <vector>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

/// Dotted OIDs, ";" between pairs, values as they are: consumers compare OIDs.
constexpr DWORD nameFormat =
    capi::CERT_OID_NAME_STR | capi::CERT_NAME_STR_SEMICOLON_FLAG | capi::CERT_NAME_STR_NO_QUOTING_FLAG;

/// Octets of the tag and the one-octet length in front of a short DER value.
constexpr std::size_t derHeader = 2;

/// Attributes whose values are numbers in some string type: INN, OGRNIP, SNILS, OGRN.
const std::set<std::string>& hexEncodedOids() {
    static const std::set<std::string> oids{"1.2.643.3.131.1.1", "1.2.643.100.4", "1.2.643.100.3", "1.2.643.100.1"};
    return oids;
}

/// The text inside "#" and the hexadecimal DER of a short string; any other value as it is.
std::string unwrapped(const std::string& value) {
    if (value.empty() || value.front() != '#') {
        return value;
    }
    try {
        const auto der = hex::decode(boost::string_view(value).substr(1));
        return der.size() > derHeader ? der.substr(derHeader) : value;
    } catch (const std::exception&) { // a value that only begins like one
        return value;
    }
}

struct Pair {
    std::string key;
    std::string value;
};

/// Octets of the "OID=" that a piece of the text begins with, after blanks; 0 when it begins with something else.
std::size_t keyEnd(boost::string_view piece) {
    const auto begin = piece.find_first_not_of(' ');
    const auto end = piece.find_first_not_of("0123456789.", begin == boost::string_view::npos ? piece.size() : begin);
    return end != boost::string_view::npos && end != begin && piece.substr(end).starts_with(constant::kv_separator)
               ? end + std::strlen(constant::kv_separator)
               : 0;
}

/// The pairs of a text whose values are not quoted: every quote and backslash in it belongs to a value, and so does a
/// separator with no OID after it.
std::vector<Pair> pairsOf(boost::string_view text) {
    const std::size_t width = std::strlen(constant::value_separator);
    std::vector<Pair> pairs;
    while (!text.empty()) {
        const auto at = text.find(constant::value_separator);
        const auto piece = text.substr(0, at);
        const auto value = keyEnd(piece);
        if (value != 0) {
            auto key = piece.substr(0, value - std::strlen(constant::kv_separator));
            key.remove_prefix(key.find_first_not_of(' '));
            pairs.push_back({key.to_string(), piece.substr(value).to_string()});
        } else if (!pairs.empty()) {
            pairs.back().value += constant::value_separator + piece.to_string();
        }
        text.remove_prefix(at == boost::string_view::npos ? text.size() : at + width);
    }
    return pairs;
}

std::string normalizeHexField(const std::string& text) {
    std::string result;
    for (const auto& [key, value] : pairsOf(text)) {
        if (!result.empty()) {
            result += constant::value_separator;
        }
        result += key + constant::kv_separator + (hexEncodedOids().count(key) != 0 ? unwrapped(value) : value);
    }
    return result;
}

std::string certNameToStr(DWORD encodingType, CERT_NAME_BLOB* name) {
    const auto size = CertNameToStrW(encodingType, name, nameFormat, nullptr, 0);
    if (!plugin::tools::check_bounds(size, 2, 102400)) {
        return {};
    }
    std::wstring text(size, L'\0');
    CertNameToStrW(encodingType, name, nameFormat, text.data(), size);
    text.erase(text.find_last_not_of(L'\0') + 1); // the end, never a zero inside a value: the rest would be hidden
    return orEmpty([&text] { return normalizeHexField(plugin::converter::utf16_to_utf8(text)); });
}

} // namespace
} // namespace internal

std::string Certificate::issuer() const {
    return info() == nullptr ? std::string() : internal::certNameToStr(native()->dwCertEncodingType, &info()->Issuer);
}

std::string Certificate::subject() const {
    return info() == nullptr ? std::string() : internal::certNameToStr(native()->dwCertEncodingType, &info()->Subject);
}

} // namespace orvik::plugin::wincrypt
