#include "text.hpp"

#include "failure.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/hex.hpp"
#include "orvik/plugin/tools.hpp"

#include <boost/date_time/posix_time/posix_time.hpp>

#include <clocale>
#include <cwctype>

#include <algorithm>
#include <regex>
#include <sstream>
#include <utility>

namespace klunortredi::cli::text {

namespace {

constexpr std::pair<std::string_view, std::string_view> shortNames[] = {
    {"2.5.4.3", "CN"},
    {"2.5.4.4", "SN"},
    {"2.5.4.5", "serialNumber"},
    {"2.5.4.6", "C"},
    {"2.5.4.7", "L"},
    {"2.5.4.8", "ST"},
    {"2.5.4.9", "street"},
    {"2.5.4.10", "O"},
    {"2.5.4.11", "OU"},
    {"2.5.4.12", "title"},
    {"2.5.4.42", "GN"},
    {"1.2.840.113549.1.9.1", "emailAddress"},
    {"0.9.2342.19200300.100.1.25", "DC"},
    {"1.2.643.3.131.1.1", "INN"},
    {"1.2.643.100.1", "OGRN"},
    {"1.2.643.100.3", "SNILS"},
    {"1.2.643.100.4", "INNLE"},
    {"1.2.643.100.5", "OGRNIP"},
};

/// First octet low, second high, as ICertificate::keyUsage gives them.
constexpr std::pair<std::string_view, unsigned> usages[] = {
    {"digitalSignature", 0x80}, {"nonRepudiation", 0x40}, {"keyEncipherment", 0x20},
    {"dataEncipherment", 0x10}, {"keyAgreement", 0x08},   {"keyCertSign", 0x04},
    {"cRLSign", 0x02},          {"encipherOnly", 0x01},   {"decipherOnly", 0x8000},
};

} // namespace

std::string oidOfAttribute(const std::string& name) {
    const auto* known =
        std::find_if(std::begin(shortNames), std::end(shortNames),
                     [own = lower(name)](const auto& row) { return lower(std::string(row.second)) == own; });
    if (known != std::end(shortNames)) {
        return std::string(known->first);
    }
    const bool digits = name.find_first_not_of("0123456789.") == std::string::npos;
    return digits && name.find('.') != std::string::npos ? name : std::string{};
}

std::string name(const orvik::plugin::crypto::NameInfo& info) {
    std::vector<std::string> parts;
    for (const auto& [oid, value] : info.attributes) {
        const auto* known = std::find_if(std::begin(shortNames), std::end(shortNames),
                                         [&oid = oid](const auto& row) { return row.first == oid; });
        parts.push_back((known == std::end(shortNames) ? oid : std::string(known->second)) + "=" + value);
    }
    return joined(parts);
}

std::string time(const boost::posix_time::ptime& time) {
    return time.is_special() ? std::string{} : boost::posix_time::to_iso_extended_string(time).substr(0, 19) + "Z";
}

std::string serial(const std::string& littleEndian) {
    return orvik::plugin::hex::encode(std::string(littleEndian.rbegin(), littleEndian.rend()));
}

std::vector<std::string> keyUsage(unsigned bits) {
    std::vector<std::string> names;
    for (const auto& [usage, bit] : usages) {
        if ((bits & bit) != 0) {
            names.emplace_back(usage);
        }
    }
    return names;
}

unsigned keyUsageBits(const std::string& list) {
    unsigned bits = 0;
    std::istringstream stream(list);
    for (std::string item; std::getline(stream, item, ',');) {
        const auto* known = std::find_if(std::begin(usages), std::end(usages),
                                         [&item](const auto& row) { return lower(row.first) == lower(item); });
        if (known == std::end(usages)) {
            throw Failure(ExitCode::usage, "cannot use --key-usage", "there is no key usage '" + item + "'",
                          "known are digitalSignature, nonRepudiation, keyEncipherment, dataEncipherment, "
                          "keyAgreement, keyCertSign, cRLSign, encipherOnly, decipherOnly");
        }
        bits |= known->second;
    }
    return bits;
}

std::string lower(std::string_view text) {
    // Names are Unicode whatever the person's own locale is.
    static const locale_t letters = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    std::wstring result;
    try {
        result = wide(std::string(text));
    } catch (const std::exception&) {
        return std::string(text); // octets that are no UTF-8 have no letters
    }
    std::transform(result.begin(), result.end(), result.begin(), [](wchar_t c) {
        return static_cast<wchar_t>(letters == nullptr ? std::towlower(static_cast<wint_t>(c))
                                                       : ::towlower_l(static_cast<wint_t>(c), letters));
    });
    return utf8(result);
}

void checkOid(const std::string& option, const std::string& text) {
    static const std::regex pattern("[0-2](\\.(0|[1-9][0-9]*))+");
    if (!std::regex_match(text, pattern)) {
        throw Failure(ExitCode::usage, "cannot use " + option + " " + text, "it is no object identifier",
                      "for example 1.2.643.7.1.1.1.1");
    }
}

std::string utf8(const std::wstring& wide) {
    return orvik::plugin::converter::utf16_to_utf8(wide);
}

std::wstring wide(const std::string& utf8) {
    return orvik::plugin::converter::utf8_to_utf16(utf8);
}

std::string joined(const std::vector<std::string>& parts) {
    std::string result;
    for (const std::string& part : parts) {
        result += (result.empty() ? "" : ", ") + part;
    }
    return result;
}

} // namespace klunortredi::cli::text
