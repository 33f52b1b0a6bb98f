#pragma once

/// Known deviations of a service: the tests that it fails, each with the reason.

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace conformance {

class Deviations {
public:
    Deviations() = default;
    /// Reads lines of the form `Suite.Test = reason`. The name may hold `*` for any run of characters; blank lines and
    /// lines that begin with `#` say nothing. Throws std::runtime_error with the line for one without name or reason,
    /// or one that is there twice.
    explicit Deviations(std::string_view text);

    /// Why that test is known to fail; nothing for a test that must pass.
    [[nodiscard]] std::optional<std::string> reason(std::string_view test) const;

private:
    std::map<std::string, std::string> reasons_; ///< by name pattern
};

/// The deviations that hold in this process.
Deviations& knownDeviations();

} // namespace conformance
