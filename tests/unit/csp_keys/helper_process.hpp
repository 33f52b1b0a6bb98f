#pragma once

/// Runs csp_keys_helper (helper.cpp).

#include "support/process.hpp"

namespace csp_keys {

inline auto helper(const std::vector<std::string>& words, const test_support::RunOptions& options = {}) {
    std::vector<std::string> command{CSP_KEYS_HELPER};
    command.insert(command.end(), words.begin(), words.end());
    return test_support::run(command, options);
}

} // namespace csp_keys
