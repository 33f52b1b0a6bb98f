#include "message_octets.hpp"

#include "der_head.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::cli {

namespace {

constexpr std::size_t bufferSize = std::size_t{64} * 1024;

/// Octets of the whole value; none for an indefinite length and for what is not a SEQUENCE.
std::optional<std::size_t> wholeSize(std::string_view head) {
    DerHead value(head);
    const auto length = value.tag() == tagSequence ? value.header() : std::nullopt;
    if (!length || *length == DerHead::indefinite) {
        return std::nullopt;
    }
    return head.size() - value.rest().size() + *length;
}

} // namespace

MessageOctets::MessageOctets(std::streambuf& source, std::string_view head)
    : source_(source), left_(wholeSize(head)), buffer_(bufferSize + 1) {}

MessageOctets::int_type MessageOctets::underflow() {
    if (gptr() != egptr()) {
        return traits_type::to_int_type(*gptr());
    }
    const std::size_t most = left_ ? std::min(*left_, bufferSize) : bufferSize;
    auto count = static_cast<std::size_t>(source_.sgetn(buffer_.data(), static_cast<std::streamsize>(most)));
    if (left_) {
        *left_ -= count;
    } else {
        count = withoutLineEnd(count);
    }
    if (count == 0) {
        return traits_type::eof();
    }
    setg(buffer_.data(), buffer_.data(), buffer_.data() + count);
    return traits_type::to_int_type(*gptr());
}

/// How many of the octets that were read belong to a message of indefinite length.
std::size_t MessageOctets::withoutLineEnd(std::size_t count) {
    if (count > 0 && buffer_[count - 1] == '\r' && source_.sgetc() == '\n') {
        buffer_[count++] = traits_type::to_char_type(source_.sbumpc());
    }
    const std::string_view read(buffer_.data(), count);
    if (!read.ends_with('\n') || source_.sgetc() != traits_type::eof()) {
        return count;
    }
    const std::size_t lineEnd = read.ends_with("\r\n") ? 2 : 1;
    endsInLine_ = true;
    return count - lineEnd;
}

Tail MessageOctets::tail() {
    if (!left_) {
        return endsInLine_ ? Tail::lineEnd : Tail::nothing;
    }
    constexpr std::size_t longest = 2; // of a line end
    std::array<char, longest + 1> octets{};
    const auto count = static_cast<std::size_t>(source_.sgetn(octets.data(), octets.size()));
    const std::string_view rest(octets.data(), count);
    if (rest.empty()) {
        return Tail::nothing;
    }
    return rest == "\n" || rest == "\r\n" ? Tail::lineEnd : Tail::octets;
}

} // namespace klunortredi::cli
