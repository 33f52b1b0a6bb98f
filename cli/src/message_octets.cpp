#include "message_octets.hpp"

#include <algorithm>

namespace klunortredi::cli {

namespace {

constexpr std::size_t bufferSize = std::size_t{64} * 1024;
constexpr std::size_t longestLineEnd = 2;

} // namespace

MessageOctets::MessageOctets(std::streambuf& source) : source_(source), buffer_(bufferSize) {}

MessageOctets::int_type MessageOctets::underflow() {
    if (gptr() != egptr()) {
        return traits_type::to_int_type(*gptr());
    }
    if (end_.reached()) {
        return traits_type::eof();
    }
    const auto read =
        static_cast<std::size_t>(source_.sgetn(buffer_.data(), static_cast<std::streamsize>(buffer_.size())));
    const std::string_view octets(buffer_.data(), read);
    const std::size_t count = end_.take(octets);
    rest_ = octets.substr(count, longestLineEnd + 1);
    if (count == 0) {
        return traits_type::eof();
    }
    setg(buffer_.data(), buffer_.data(), buffer_.data() + count);
    return traits_type::to_int_type(*gptr());
}

Tail MessageOctets::tail() {
    while (rest_.size() <= longestLineEnd && source_.sgetc() != traits_type::eof()) {
        rest_ += traits_type::to_char_type(source_.sbumpc());
    }
    if (rest_.empty()) {
        return Tail::nothing;
    }
    return rest_ == "\n" || rest_ == "\r\n" ? Tail::lineEnd : Tail::octets;
}

} // namespace klunortredi::cli
