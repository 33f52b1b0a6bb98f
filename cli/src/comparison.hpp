#pragma once

#include <istream>
#include <string>
#include <string_view>

namespace klunortredi::cli {

/// Compares what a message carries, piece by piece, with a file that it is said to carry.
class Comparison {
public:
    /// `expected` outlives this.
    explicit Comparison(std::istream& expected) : expected_(expected) {}

    void take(std::string_view octets);
    /// Whether everything taken is the whole file.
    [[nodiscard]] bool same();

private:
    std::istream& expected_;
    std::string buffer_;
    bool same_ = true;
};

} // namespace klunortredi::cli
