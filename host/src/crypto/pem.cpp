#include "orvik/plugin/crypto/tools.hpp"

#include <algorithm>
#include <array>

namespace orvik::plugin::crypto::tools {

namespace {

// In order of preference: a file may carry a key or a request before the certificate.
constexpr std::array<boost::string_view, 3> beginnings = {"-----BEGIN CERTIFICATE-----",
                                                          "-----BEGIN X509 CERTIFICATE-----", "-----BEGIN "};
constexpr boost::string_view dashes = "-----";
constexpr boost::string_view ending = "-----END ";

/// What stands between the armour lines; the whole text when there are none.
boost::string_view body(boost::string_view text) {
    for (const auto beginning : beginnings) {
        const auto start = text.find(beginning);
        if (start == boost::string_view::npos) {
            continue;
        }
        const auto label = text.substr(start + dashes.size());
        const auto lineEnd = label.find(dashes);
        if (lineEnd != boost::string_view::npos) {
            const auto inside = label.substr(lineEnd + dashes.size());
            return inside.substr(0, inside.find(ending));
        }
    }
    return text;
}

} // namespace

std::string normalizePEM(const std::string& text) {
    const auto inside = body(text);
    std::string out;
    out.reserve(inside.size());
    std::copy_if(inside.begin(), inside.end(), std::back_inserter(out),
                 [](char c) { return boost::string_view(" \t\r\n\v\f").find(c) == boost::string_view::npos; });
    return out;
}

} // namespace orvik::plugin::crypto::tools
