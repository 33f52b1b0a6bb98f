#pragma once

/// The octets of one message, apart from what follows them in a file.

#include "message_end.hpp"

#include <streambuf>
#include <string>
#include <vector>

namespace klunortredi::cli {

/// What follows the message.
enum class Tail {
    nothing,
    lineEnd, ///< one "\n" or "\r\n", which an editor or a transfer adds
    octets,  ///< something else
};

/// Passes a BER or DER message on and stops where it ends, whatever the form of its lengths. What cannot be followed is
/// passed on whole, and the reader of the message says what is wrong. Memory stays flat.
class MessageOctets : public std::streambuf {
public:
    /// Reads from `source`, which outlives this.
    explicit MessageOctets(std::streambuf& source);

    /// What follows the message; call it after the message was read to its end. Reads up to three octets more.
    [[nodiscard]] Tail tail();

protected:
    int_type underflow() override;

private:
    std::streambuf& source_;
    MessageEnd end_;
    std::string rest_; ///< the first octets after the message that were read with it
    std::vector<char> buffer_;
};

} // namespace klunortredi::cli
