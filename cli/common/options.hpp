#pragma once

#include <optional>
#include <string>

namespace klunortredi::cli {

/// Where the PIN comes from; none of them given: the terminal.
struct PinOptions {
    std::string file;
    std::string environment;
    std::optional<int> descriptor;
};

/// Options that every verb takes.
struct Options {
    bool json = false;
    bool jsonLines = false; ///< of the verbs that have it: one JSON document a line
    bool quiet = false;
    bool force = false;
    bool pem = false;
    int verbosity = 0;
    std::string service;
    PinOptions pin;
};

} // namespace klunortredi::cli
