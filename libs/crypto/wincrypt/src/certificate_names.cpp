#include "crypto/wincrypt/certificate.hpp"

#include "lenient.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/hex.hpp"
#include "orvik/plugin/tools.hpp"

#include <exception>
#include <set>
#include <string>

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

std::string normalizeHexField(const std::string& text) {
    std::string result;
    for (const auto& [key, value] : plugin::tools::split(text, constant::kv_separator, constant::value_separator)) {
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
    return orEmpty(
        [&text] { return normalizeHexField(plugin::converter::utf16_to_utf8(text.substr(0, text.find(L'\0')))); });
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
