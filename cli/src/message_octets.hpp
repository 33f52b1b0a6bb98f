#pragma once

/// The octets of one message, apart from what follows them in a file.

#include <cstddef>
#include <optional>
#include <streambuf>
#include <string_view>
#include <vector>

namespace klunortredi::cli {

/// What follows the message.
enum class Tail {
    nothing,
    lineEnd, ///< one "\n" or "\r\n", which an editor or a transfer adds
    octets,  ///< something else
};

/// Passes a BER or DER message on and stops where it ends: the outermost length says where. A message of indefinite
/// length ends in two zero octets, so a line end after them is not part of it; everything else is passed on, and the
/// reader of the message says what is wrong. Memory stays flat.
class MessageOctets : public std::streambuf {
public:
    /// Reads from `source`, which starts with `head` (six octets are enough) and outlives this.
    MessageOctets(std::streambuf& source, std::string_view head);

    /// What follows the message; call it after the message was read to its end. Reads up to three octets more.
    [[nodiscard]] Tail tail();

protected:
    int_type underflow() override;

private:
    [[nodiscard]] std::size_t withoutLineEnd(std::size_t count);

    std::streambuf& source_;
    std::optional<std::size_t> left_; ///< octets of a message of definite length that were not read yet
    bool endsInLine_ = false;         ///< a line end was held back
    std::vector<char> buffer_;
};

} // namespace klunortredi::cli
