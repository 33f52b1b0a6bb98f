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

/// The whole tour, in a folder that holds `openssl.cnf` and `report.txt`.
std::vector<DemoStep> demoSteps();

/// Configuration with which the `openssl` command plays the certification authority and the second judge.
std::string demoOpensslConfiguration();

} // namespace klunortredi::cli
