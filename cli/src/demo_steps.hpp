#pragma once

#include <string>
#include <vector>

namespace klunortredi::cli {

/// One step of the tour: what a person would type, and what it shows.
struct DemoStep {
    std::string title;
    std::vector<std::string> command; ///< "klunortredi" stands for this program
    int exit = 0;                     ///< what the command is to end with
};

/// The whole tour, in a folder that holds `openssl.cnf` and `report.txt`. With the URL of a time-stamp authority it
/// has a time-stamp too.
std::vector<DemoStep> demoSteps(const std::string& authority);

/// Configuration with which the `openssl` command plays the certification authority and the second judge.
std::string demoOpensslConfiguration();

} // namespace klunortredi::cli
