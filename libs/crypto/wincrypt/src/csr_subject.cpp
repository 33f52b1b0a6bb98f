#include "csr_parts.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/tools_encode.hpp"
#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/tools.hpp"

#include <boost/optional.hpp>

#include <algorithm>
#include <array>
#include <utility>

namespace orvik::plugin::wincrypt::csr {

namespace {

struct ValueType {
    boost::string_view oid;
    DWORD type;
};

/// Attributes whose values are not UTF8String (RFC 5280, appendix A; order of the FSB No. 795 for the numbers).
constexpr std::array valueTypes{
    ValueType{"1.2.840.113549.1.9.1", capi::CERT_RDN_IA5_STRING},  // e-mail
    ValueType{"2.5.4.6", capi::CERT_RDN_PRINTABLE_STRING},         // country
    ValueType{"1.2.643.3.131.1.1", capi::CERT_RDN_NUMERIC_STRING}, // INN
    ValueType{"1.2.643.100.4", capi::CERT_RDN_NUMERIC_STRING},     // OGRNIP
    ValueType{"1.2.643.100.3", capi::CERT_RDN_NUMERIC_STRING},     // SNILS
    ValueType{"1.2.643.100.1", capi::CERT_RDN_NUMERIC_STRING},     // OGRN
};

DWORD valueType(const std::string& oid) {
    const auto* found =
        std::find_if(valueTypes.begin(), valueTypes.end(), [&](const ValueType& row) { return row.oid == oid; });
    return found == valueTypes.end() ? capi::CERT_RDN_UTF8_STRING : found->type;
}

/// The value that a quoted text means: its quotes go, a pair of quotes inside is one. Nothing when the text is not
/// wholly quoted.
boost::optional<std::string> unquoted(const std::string& text) {
    if (text.size() < 2 || text.front() != '"' || text.back() != '"') {
        return boost::none;
    }
    std::string value;
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        if (text[i] == '"') {
            ++i;
            if (i + 1 >= text.size() || text[i] != '"') {
                return boost::none;
            }
        }
        value += text[i];
    }
    return value;
}

/// The value that a text of the subject means: wholly quoted, or with a backslash before a separator, a quote or a
/// backslash. Other quotes and backslashes are characters of the value: `Company "Name"`, `DOMAIN\user`.
std::string plainValue(const std::string& text) {
    if (auto value = unquoted(text)) {
        return *std::move(value);
    }
    std::string value;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool escapes = text[i] == '\\' && i + 1 < text.size() &&
                             boost::string_view("\\\"=;").find(text[i + 1]) != boost::string_view::npos;
        i += escapes ? 1 : 0;
        value += text[i];
    }
    return value;
}

/// One attribute and the texts that it points to.
struct Attribute {
    std::string oid;
    std::string octets;
    std::wstring wide;
    CERT_RDN_ATTR description;

    Attribute(std::string key, std::string value) : oid(std::move(key)), octets(std::move(value)), description() {
        description.dwValueType = valueType(oid);
        if (description.dwValueType == capi::CERT_RDN_UTF8_STRING) {
            wide = plugin::converter::utf8_to_utf16(octets);
        }
    }

    /// To be called where the object stays. Inside a name, wide text is counted in octets.
    CERT_RDN_ATTR* describe() {
        description.pszObjId = oid.data();
        description.Value =
            description.dwValueType == capi::CERT_RDN_UTF8_STRING
                ? CERT_RDN_VALUE_BLOB{static_cast<DWORD>(wide.size() * sizeof(wchar_t)),
                                      reinterpret_cast<BYTE*>(wide.data())}
                : CERT_RDN_VALUE_BLOB{static_cast<DWORD>(octets.size()), reinterpret_cast<BYTE*>(octets.data())};
        return &description;
    }
};

} // namespace

std::string encodeSubject(const std::string& subject) {
    std::vector<Attribute> attributes;
    for (auto& [key, value] : plugin::tools::split(subject, constant::kv_separator, constant::value_separator)) {
        attributes.emplace_back(key, plainValue(value));
    }
    std::vector<CERT_RDN> names;
    names.reserve(attributes.size());
    for (auto& attribute : attributes) {
        names.push_back({1, attribute.describe()});
    }
    return tools::encodeCertNameInfo({static_cast<DWORD>(names.size()), names.data()});
}

} // namespace orvik::plugin::wincrypt::csr
