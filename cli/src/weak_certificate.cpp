#include "weak_certificate.hpp"

#include "orvik/plugin/crypto/i_public_key.hpp"

#include <bit>
#include <cstdint>
#include <optional>
#include <string_view>

namespace klunortredi::cli {

namespace {

using namespace orvik::plugin::crypto;

constexpr std::string_view rsaEncryption = "1.2.840.113549.1.1.1";
constexpr std::string_view rsaPss = "1.2.840.113549.1.1.10";
constexpr char sequence = '\x30';
constexpr char integer = '\x02';

/// Takes a DER value of that tag off the front of `octets`.
std::optional<std::string_view> take(std::string_view& octets, char tag) {
    if (octets.size() < 2 || octets.front() != tag) {
        return {};
    }
    std::size_t length = static_cast<std::uint8_t>(octets[1]);
    std::size_t header = 2;
    if (length >= 0x80) {
        const std::size_t count = length & 0x7FU;
        if (count > sizeof(std::uint32_t) || octets.size() < header + count) {
            return {};
        }
        length = 0;
        for (std::size_t i = 0; i < count; ++i) {
            length = length << 8U | static_cast<std::uint8_t>(octets[header + i]);
        }
        header += count;
    }
    if (octets.size() - header < length) {
        return {};
    }
    const std::string_view value = octets.substr(header, length);
    octets.remove_prefix(header + length);
    return value;
}

} // namespace

unsigned rsaBits(const ICertificate& certificate) {
    const auto key = certificate.publicKey();
    if (!key || (key->algObjId() != rsaEncryption && key->algObjId() != rsaPss)) {
        return 0;
    }
    std::string_view octets = key->key();
    auto body = take(octets, sequence); // RSAPublicKey (RFC 8017, A.1.1)
    auto modulus = body ? take(*body, integer) : std::nullopt;
    while (modulus && modulus->starts_with('\0')) {
        modulus->remove_prefix(1);
    }
    return !modulus || modulus->empty()
               ? 0
               : static_cast<unsigned>((modulus->size() - 1) * 8) +
                     static_cast<unsigned>(std::bit_width(static_cast<std::uint8_t>(modulus->front())));
}

std::vector<Weakness> weaknessesOf(const ICertificate& certificate, bool signatureMatters,
                                   const boost::posix_time::ptime& time) {
    const auto key = certificate.publicKey();
    const std::string digest = signatureMatters ? certificate.signatureAlgorithm() : std::string{};
    return weaknesses({digest, key ? std::string_view(key->algObjId()) : std::string_view{}, rsaBits(certificate)},
                      time);
}

} // namespace klunortredi::cli
