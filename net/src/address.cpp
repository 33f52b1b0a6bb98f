#include "net/address.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include <stdexcept>
#include <string_view>

namespace klunortredi::net {

namespace {

constexpr std::size_t mappedBits = 96;

struct Row {
    const char* address;
    std::size_t bits;
};

/// Networks without public unicast addresses (RFC 6890 and the registry of special-purpose addresses).
constexpr std::array notPublicV4{
    Row{"0.0.0.0", 8},                               // this network
    Row{"10.0.0.0", 8},                              // private use
    Row{"100.64.0.0", 10},                           // shared by the customers of a provider, RFC 6598
    Row{"127.0.0.0", 8},                             // loopback
    Row{"169.254.0.0", 16},                          // link-local; metadata of cloud machines
    Row{"172.16.0.0", 12},                           // private use
    Row{"192.0.0.0", 24},                            // protocol assignments
    Row{"192.0.2.0", 24},                            // documentation
    Row{"192.88.99.0", 24},                          // relays of 6to4
    Row{"192.168.0.0", 16},                          // private use
    Row{"198.18.0.0", 15},                           // benchmarking
    Row{"198.51.100.0", 24}, Row{"203.0.113.0", 24}, // documentation
    Row{"224.0.0.0", 3},                             // multicast, reserved, broadcast
};
/// Inside 2000::/3, outside of which no public address is assigned.
constexpr std::array notPublicV6{
    Row{"2001::", 23},     // protocol assignments, with Teredo
    Row{"2001:db8::", 32}, // documentation
    Row{"3fff::", 20},     // documentation
};
/// IPv6 networks whose addresses hold an IPv4 address, which decides, at that octet.
struct Embedding {
    const char* address;
    std::size_t bits;
    std::size_t octet;
};
constexpr std::array embeddings{
    Embedding{"64:ff9b::", 96, 12}, // NAT64, RFC 6052
    Embedding{"2002::", 16, 2},     // 6to4, RFC 3056
};

Address fromV4(std::span<const unsigned char, 4> octets) {
    Address made;
    made.octets[10] = made.octets[11] = 0xFF;
    std::ranges::copy(octets, made.octets.begin() + 12);
    return made;
}

std::span<const unsigned char, 4> v4At(const Address& address, std::size_t octet) {
    return std::span<const unsigned char, 4>(address.octets.data() + octet, 4);
}

bool inNetwork(const Address& address, const Address& network, std::size_t bits) {
    const std::size_t whole = bits / 8;
    if (!std::equal(address.octets.begin(), address.octets.begin() + static_cast<std::ptrdiff_t>(whole),
                    network.octets.begin())) {
        return false;
    }
    const std::size_t rest = bits % 8;
    return rest == 0 || ((address.octets[whole] ^ network.octets[whole]) >> (8 - rest)) == 0;
}

bool isMapped(const Address& address) {
    static const Address prefix = fromV4(std::array<unsigned char, 4>{});
    return inNetwork(address, prefix, mappedBits);
}

bool inRow(const Address& address, const Row& row) {
    const Address network = *parseAddress(row.address);
    return inNetwork(address, network, isMapped(network) ? mappedBits + row.bits : row.bits);
}

bool inAnyRow(const Address& address, std::span<const Row> rows) {
    return std::ranges::any_of(rows, [&](const Row& row) { return inRow(address, row); });
}

} // namespace

std::optional<Address> addressOf(const sockaddr& address) {
    if (address.sa_family == AF_INET) {
        sockaddr_in v4{};
        std::memcpy(&v4, &address, sizeof v4);
        std::array<unsigned char, 4> octets{};
        std::memcpy(octets.data(), &v4.sin_addr, octets.size());
        return fromV4(octets);
    }
    if (address.sa_family == AF_INET6) {
        sockaddr_in6 v6{};
        std::memcpy(&v6, &address, sizeof v6);
        Address made;
        std::memcpy(made.octets.data(), &v6.sin6_addr, made.octets.size());
        return made;
    }
    return std::nullopt;
}

std::optional<Address> parseAddress(const std::string& text) {
    const bool bracketed = text.size() > 2 && text.front() == '[' && text.back() == ']';
    const std::string inner = bracketed ? text.substr(1, text.size() - 2) : text;
    Address made;
    if (::inet_pton(AF_INET6, inner.substr(0, inner.find('%')).c_str(), made.octets.data()) == 1) {
        return made;
    }
    in_addr v4{};
    if (!bracketed && inner.find_first_of(" \t\r\n\v\f") == std::string::npos && ::inet_aton(inner.c_str(), &v4) == 1) {
        std::array<unsigned char, 4> octets{};
        std::memcpy(octets.data(), &v4, octets.size());
        return fromV4(octets);
    }
    return std::nullopt;
}

std::string toText(const Address& address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (isMapped(address)) {
        ::inet_ntop(AF_INET, address.octets.data() + 12, text.data(), text.size());
    } else {
        ::inet_ntop(AF_INET6, address.octets.data(), text.data(), text.size());
    }
    return text.data();
}

bool isPublic(const Address& address) {
    if (isMapped(address)) {
        return !inAnyRow(address, notPublicV4);
    }
    for (const auto& row : embeddings) {
        if (inRow(address, {row.address, row.bits})) {
            return isPublic(fromV4(v4At(address, row.octet)));
        }
    }
    return inRow(address, {"2000::", 3}) && !inAnyRow(address, notPublicV6);
}

AddressRules::AddressRules(const std::string& text) {
    constexpr const char* separators = ", \t";
    if (text == "allow") {
        everything_ = true;
        return;
    }
    for (auto begin = text.find_first_not_of(separators); begin != std::string::npos;) {
        const auto end = text.find_first_of(separators, begin);
        const std::string entry = text.substr(begin, end - begin);
        const auto slash = entry.find('/');
        const auto address = parseAddress(entry.substr(0, slash));
        const std::string bits = slash == std::string::npos ? "" : entry.substr(slash + 1);
        const bool digits = bits.size() <= 3 && std::ranges::all_of(bits, [](char c) { return c >= '0' && c <= '9'; });
        if (!address || !digits || (slash != std::string::npos && bits.empty())) {
            throw std::invalid_argument("not an address or network: " + entry);
        }
        const std::size_t offset = isMapped(*address) && entry.find(':') == std::string::npos ? mappedBits : 0;
        const std::size_t length = bits.empty() ? 128 : offset + std::stoul(bits);
        if (length > 128) {
            throw std::invalid_argument("the network's length is too large: " + entry);
        }
        networks_.push_back({*address, length});
        begin = text.find_first_not_of(separators, end);
    }
}

AddressRules AddressRules::fromEnvironment() {
    const char* const text = ::secure_getenv(privateAddressesVariable);
    return AddressRules(text == nullptr ? "" : text);
}

bool AddressRules::allows(const Address& address) const {
    return everything_ || isPublic(address) || lists(address);
}

bool AddressRules::lists(const Address& address) const {
    return std::ranges::any_of(
        networks_, [&](const Network& network) { return inNetwork(address, network.address, network.bits); });
}

} // namespace klunortredi::net
