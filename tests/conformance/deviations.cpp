#include "deviations.hpp"

#include <fnmatch.h>

#include <sstream>
#include <stdexcept>

namespace conformance {

namespace {

std::string trimmed(const std::string& text) {
    constexpr const char* blanks = " \t\r";
    const std::size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

} // namespace

Deviations::Deviations(std::string_view text) {
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        line = trimmed(line);
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const std::size_t equals = line.find('=');
        const std::string name = trimmed(line.substr(0, equals));
        const std::string reason = equals == std::string::npos ? "" : trimmed(line.substr(equals + 1));
        if (name.empty() || reason.empty() || !reasons_.emplace(name, reason).second) {
            throw std::runtime_error("not a deviation of its own with a reason: " + line);
        }
    }
}

std::optional<std::string> Deviations::reason(std::string_view test) const {
    const std::string name(test);
    for (const auto& [pattern, reason] : reasons_) {
        if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0) {
            return reason;
        }
    }
    return std::nullopt;
}

Deviations& knownDeviations() {
    static Deviations instance;
    return instance;
}

} // namespace conformance
