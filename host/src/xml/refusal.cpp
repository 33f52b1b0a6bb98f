#include "refusal.hpp"

#include "orvik/plugin/crypto/exception/crypto_exception.hpp"

#include <string_view>

namespace orvik::plugin::xml::internal {

namespace {

constexpr std::size_t longestShown = 256;

} // namespace

void refuseDocument(const std::string& reason) {
    using crypto::exception::CryptoException;
    plugin::exception::raise(CryptoException(CryptoException::Code::unknownFormat)
                                 << plugin::exception::Message_(reason),
                             {"xml_document", "XmlDocument"});
}

std::string shown(const std::string& text) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string out;
    for (const char c : text.substr(0, longestShown)) {
        const auto octet = static_cast<unsigned char>(c);
        if (octet >= 0x20 && octet < 0x7f) {
            out += c;
        } else {
            out += {'\\', 'x', digits[octet >> 4U], digits[octet & 0xFU]};
        }
    }
    return text.size() > longestShown ? out + "..." : out;
}

} // namespace orvik::plugin::xml::internal
