#include "certificate_format.hpp"

#include "orvik/plugin/base64.hpp"

#include <cstddef>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using Format = crypto::ICertificate::Format;

constexpr boost::string_view armour = "-----BEGIN CERTIFICATE-----";
constexpr boost::string_view x509Armour = "-----BEGIN X509 CERTIFICATE-----";
/// Base64 shows itself in this many characters.
constexpr std::size_t likelyLength = 10;

/// An ASN.1 SEQUENCE whose length octets announce no more than there is.
bool looksLikeDer(boost::string_view data) {
    if (data.size() < 2 || data[0] != '\x30') {
        return false;
    }
    const auto first = static_cast<unsigned char>(data[1]);
    if (first < 0x80) {
        return first <= data.size() - 2;
    }
    const std::size_t count = first & 0x7FU;
    if (count == 0 || count > 4 || count > data.size() - 2) {
        return false;
    }
    std::size_t length = 0;
    for (const char octet : data.substr(2, count)) {
        length = length << 8U | static_cast<unsigned char>(octet);
    }
    return length <= data.size() - 2 - count;
}

} // namespace
} // namespace internal

crypto::ICertificate::Format certificateFormat(boost::string_view data) {
    using internal::Format;
    if (data.starts_with(internal::x509Armour) || data.find(internal::armour) != boost::string_view::npos ||
        base64::likely(data, internal::likelyLength)) {
        return Format::pem;
    }
    return internal::looksLikeDer(data) ? Format::der : Format::unknown;
}

} // namespace orvik::plugin::wincrypt
