#pragma once

/// Reading of tags and lengths (BER and DER, X.690) at the head of a structure.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace klunortredi::cli {

inline constexpr unsigned char tagInteger = 0x02;
inline constexpr unsigned char tagOid = 0x06;
inline constexpr unsigned char tagSequence = 0x30;
inline constexpr unsigned char tagSet = 0x31;
inline constexpr unsigned char tagExplicit0 = 0xA0;

/// A reader of tags and lengths that gives up (empty results) where the octets end. The octets stay the caller's.
class DerHead {
public:
    static constexpr std::size_t indefinite = static_cast<std::size_t>(-1);

    explicit DerHead(std::string_view octets) : rest_(octets) {}

    [[nodiscard]] std::optional<unsigned char> tag() const {
        return rest_.empty() ? std::nullopt : std::optional(static_cast<unsigned char>(rest_.front()));
    }

    /// Steps into a value of that tag: past its tag and length.
    bool enter(unsigned char expected) { return tag() == expected && header().has_value(); }
    /// The contents of a primitive value of that tag; steps past it.
    std::optional<std::string_view> take(unsigned char expected);
    /// Steps past a whole value, or to the end of the octets when the value is longer (false then).
    bool skip(int depth = 0);
    /// Reads a one-octet tag and the length (or `indefinite`); the contents are next then.
    std::optional<std::size_t> header();
    /// What was not read yet.
    [[nodiscard]] std::string_view rest() const noexcept { return rest_; }

private:
    std::string_view rest_;
};

/// "1.2.643..." of the contents of an OBJECT IDENTIFIER (X.690, 8.19); empty when an arc does not end or is too large.
std::string dottedOid(std::string_view contents);

} // namespace klunortredi::cli
