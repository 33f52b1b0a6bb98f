#pragma once

/// Where a message ends in the octets of a file.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace klunortredi::cli {

/// Follows one BER or DER value (X.690, 8.1) to its end. Values of definite length are passed over whole, so only those
/// of indefinite length are entered, and a count of them is all that is kept.
class MessageEnd {
public:
    /// How many of the octets, which follow those of the last call, belong to the value. All of them where its form
    /// cannot be followed: its reader says what is wrong.
    std::size_t take(std::string_view octets);
    [[nodiscard]] bool reached() const noexcept { return state_ == State::ended; }

private:
    enum class State : std::uint8_t { identifier, tagNumber, length, lengthOctets, content, ended, lost };

    void takeHead(unsigned char octet);
    void endHead();
    /// A value, or the mark that ends one of indefinite length, is over.
    void endValue();

    State state_ = State::identifier;
    bool first_ = true; ///< the identifier of the message itself is next
    bool constructed_ = false;
    bool mark_ = false; ///< the identifier was that of end-of-contents
    bool indefinite_ = false;
    unsigned lengthOctets_ = 0; ///< still to come
    std::uint64_t length_ = 0;  ///< and then octets of content still to come
    std::uint64_t open_ = 0;    ///< values of indefinite length that were entered
};

} // namespace klunortredi::cli
