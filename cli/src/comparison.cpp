#include "comparison.hpp"

namespace klunortredi::cli {

void Comparison::take(std::string_view octets) {
    buffer_.resize(octets.size());
    expected_.read(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    const auto got = static_cast<std::size_t>(expected_.gcount());
    same_ = same_ && octets == std::string_view(buffer_.data(), got);
}

bool Comparison::same() {
    return same_ && expected_.peek() == std::istream::traits_type::eof();
}

} // namespace klunortredi::cli
