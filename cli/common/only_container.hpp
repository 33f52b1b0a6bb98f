#pragma once

/// Which container a name means.

#include "failure.hpp"

#include <string>
#include <utility>
#include <vector>

namespace klunortredi::cli {

/// The one that was found under `name`. Throws Failure: none (exit 1; `listing` is the command that shows them), one in
/// each of several providers (exit 2): any of them might be the wrong one.
template <class Container>
Container onlyContainer(std::vector<Container> found, const std::string& name, const std::string& listing) {
    if (found.empty()) {
        throw Failure(ExitCode::no, "no container '" + name + "'", "there is none of that name",
                      "see '" + listing + "'");
    }
    if (found.size() > 1) {
        throw Failure(ExitCode::usage, "cannot tell which container '" + name + "' is",
                      "several providers have one of that name", "choose with --provider");
    }
    return std::move(found.front());
}

} // namespace klunortredi::cli
