#include "der_head.hpp"

#include <algorithm>
#include <cstdint>

namespace klunortredi::cli {

namespace {

constexpr int deepest = 16; // nesting of an indefinite-length value that is to be skipped
constexpr std::uint64_t largestArc = std::uint64_t{1} << 56U;

} // namespace

std::optional<std::string_view> DerHead::take(unsigned char expected) {
    if (tag() != expected) {
        return std::nullopt;
    }
    const auto length = header();
    if (!length || *length == indefinite || *length > rest_.size()) {
        return std::nullopt;
    }
    const auto contents = rest_.substr(0, *length);
    rest_.remove_prefix(*length);
    return contents;
}

bool DerHead::skip(int depth) {
    const auto length = header();
    if (!length || depth > deepest) {
        return false;
    }
    if (*length != indefinite) {
        rest_.remove_prefix(std::min(*length, rest_.size()));
        return !rest_.empty();
    }
    while (!rest_.starts_with(std::string_view("\0\0", 2))) {
        if (!skip(depth + 1)) {
            return false;
        }
    }
    rest_.remove_prefix(2);
    return true;
}

std::optional<std::size_t> DerHead::header() {
    if (rest_.size() < 2) {
        return std::nullopt;
    }
    const auto first = static_cast<unsigned char>(rest_[1]);
    rest_.remove_prefix(2);
    if (first < 0x80) {
        return first;
    }
    if (first == 0x80) {
        return indefinite;
    }
    const std::size_t count = first & 0x7FU;
    if (count > sizeof(std::size_t) - 1 || rest_.size() < count) {
        return std::nullopt;
    }
    std::size_t length = 0;
    for (std::size_t i = 0; i < count; ++i) {
        length = length << 8U | static_cast<unsigned char>(rest_[i]);
    }
    rest_.remove_prefix(count);
    return length;
}

std::string dottedOid(std::string_view contents) {
    std::string dotted;
    std::uint64_t arc = 0;
    bool inside = false; // of an arc that has not ended
    for (const char c : contents) {
        const auto octet = static_cast<unsigned char>(c);
        if (arc >= largestArc) {
            return {};
        }
        arc = arc << 7U | (octet & 0x7FU);
        inside = (octet & 0x80U) != 0;
        if (inside) {
            continue;
        }
        if (dotted.empty()) { // the first octets hold two arcs
            const std::uint64_t first = std::min<std::uint64_t>(arc / 40, 2);
            dotted = std::to_string(first) + "." + std::to_string(arc - first * 40);
        } else {
            dotted += "." + std::to_string(arc);
        }
        arc = 0;
    }
    return inside ? std::string{} : dotted;
}

} // namespace klunortredi::cli
