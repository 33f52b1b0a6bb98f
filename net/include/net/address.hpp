#pragma once

#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace klunortredi::net {

/// An IPv4 or IPv6 address. IPv4 addresses are held in their IPv4-mapped form (::ffff:0:0/96, RFC 4291, 2.5.5.2), so
/// that both spellings are the same address.
struct Address {
    std::array<unsigned char, 16> octets{};

    friend bool operator==(const Address&, const Address&) = default;
};

/// Returns nullopt for families other than IPv4 and IPv6.
std::optional<Address> addressOf(const sockaddr& address);
/// Reads an address as a URL spells it: IPv6 in brackets or without, IPv4 with decimal, octal or hexadecimal parts.
/// Returns nullopt for names.
std::optional<Address> parseAddress(const std::string& text);
std::string toText(const Address& address);

/// Whether the address is a public unicast address: none of loopback, link-local, private use, shared (RFC 6598),
/// documentation, benchmarking, multicast, reserved (RFC 6890), and no IPv6 address that leads to such an IPv4
/// address (mapped, NAT64 of RFC 6052, 6to4) or whose translation is not known (local NAT64, Teredo).
bool isPublic(const Address& address);

/// The addresses that are allowed although they are not public.
class AddressRules {
public:
    /// Only public addresses.
    AddressRules() = default;
    /// Text of KLUNORTREDI_PRIVATE_ADDRESSES: empty, "allow" for every address, or addresses and networks
    /// (10.1.0.0/16, fd00::/8) separated by commas or blanks. Throws std::invalid_argument for other texts.
    explicit AddressRules(const std::string& text);
    /// Those of the environment.
    static AddressRules fromEnvironment();

    [[nodiscard]] bool allows(const Address& address) const;
    /// Whether one of the text's networks contains the address.
    [[nodiscard]] bool lists(const Address& address) const;

private:
    struct Network {
        Address address;
        std::size_t bits;
    };
    std::vector<Network> networks_;
    bool everything_ = false;
};

inline constexpr const char* privateAddressesVariable = "KLUNORTREDI_PRIVATE_ADDRESSES";

} // namespace klunortredi::net
