#include "net/error.hpp"

#include <algorithm>

namespace klunortredi::net {

namespace {

constexpr std::size_t shownUrl = 300;
constexpr std::size_t shownReason = 400;
constexpr std::size_t shownMediaType = 100;

} // namespace

std::string printable(const std::string& text, std::size_t limit) {
    std::string shown = text.substr(0, limit);
    std::ranges::replace_if(
        shown, [](char c) { return c < ' ' || c > '~'; }, '?');
    return text.size() > limit ? shown + "..." : shown;
}

NetworkError::NetworkError(ErrorKind kind, const std::string& url, const std::string& reason, long httpStatus,
                           const std::string& mediaType)
    : std::runtime_error(printable(url, shownUrl) + ": " + printable(reason, shownReason)), kind_(kind), url_(url),
      reason_(printable(reason, shownReason)), httpStatus_(httpStatus),
      mediaType_(printable(mediaType, shownMediaType)) {}

} // namespace klunortredi::net
