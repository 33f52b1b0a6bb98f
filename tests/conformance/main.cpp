// Runs the suite on a service: --service PATH[:PATH2] [--deviations FILE] [--isolate] [gtest's own options].

#include "deviations.hpp"
#include "service.hpp"
#include "support/process.hpp"
#include "support/temp_folder.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Options {
    std::string service;
    std::string deviations;
    bool isolate = false;
};

std::string fromEnvironment(const char* name, const char* otherwise) {
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing else runs yet
    return value == nullptr || *value == '\0' ? otherwise : value;
}

std::string valueOf(const std::vector<std::string>& words, std::size_t index) {
    if (index >= words.size()) {
        throw std::runtime_error(words.back() + " wants a value");
    }
    return words[index];
}

Options parse(const std::vector<std::string>& words) {
    Options options{fromEnvironment("CONFORMANCE_SERVICE", CONFORMANCE_DEFAULT_SERVICE), "", false};
    options.deviations = fromEnvironment("CONFORMANCE_DEVIATIONS", "");
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (words[i] == "--service") {
            options.service = valueOf(words, ++i);
        } else if (words[i] == "--deviations") {
            options.deviations = valueOf(words, ++i);
        } else if (words[i] == "--isolate") {
            options.isolate = true;
        } else {
            throw std::runtime_error("unknown option " + words[i]);
        }
    }
    if (options.deviations.empty() && options.service == CONFORMANCE_DEFAULT_SERVICE) {
        options.deviations = CONFORMANCE_DEFAULT_DEVIATIONS;
    }
    return options;
}

std::vector<std::string> split(const std::string& paths) {
    std::vector<std::string> list;
    for (std::size_t begin = 0; begin <= paths.size();) {
        const std::size_t end = std::min(paths.find(':', begin), paths.size());
        list.push_back(paths.substr(begin, end - begin));
        begin = end + 1;
    }
    return list;
}

/// The names of the tests that gtest's filter lets through, as gtest lists them: a suite per line, its tests indented
/// below it, parameters behind a number sign.
std::vector<std::string> chosenTests(const std::vector<std::string>& command) {
    std::vector<std::string> listing = command;
    listing.emplace_back("--gtest_list_tests");
    listing.push_back("--gtest_filter=" + testing::GTEST_FLAG(filter));
    std::istringstream lines(test_support::run(listing).out);
    std::vector<std::string> names;
    std::string suite;
    for (std::string line; std::getline(lines, line);) {
        const std::string word = line.substr(0, line.find("  #"));
        if (word.starts_with("  ")) {
            names.push_back(suite + word.substr(2));
        } else {
            suite = word;
        }
    }
    return names;
}

/// Each test in a process of its own, so that a service that crashes fails one test and not the run.
int runIsolated(const Options& options, const test_support::TempFolder& folder) {
    setenv("TMPDIR", folder.path().c_str(), 1); // NOLINT(concurrency-mt-unsafe): what a crash leaves behind goes, too
    std::vector<std::string> command{std::filesystem::read_symlink("/proc/self/exe"), "--service", options.service};
    if (!options.deviations.empty()) {
        command.insert(command.end(), {"--deviations", options.deviations});
    }
    const std::vector<std::string> tests = chosenTests(command);
    std::size_t failed = 0;
    std::size_t deviating = 0;
    command.emplace_back();
    for (const std::string& name : tests) {
        command.back() = "--gtest_filter=" + name;
        const test_support::Outcome outcome = test_support::run(command);
        const auto reason = conformance::knownDeviations().reason(name);
        const bool crashed = outcome.signal != 0;
        const bool good = outcome.exit == 0 || (crashed && reason);
        std::cout << (!good    ? "FAILED    "
                      : reason ? "DEVIATES  "
                               : "OK        ")
                  << name << (crashed ? ": the service crashed" : "") << (reason ? " (" + *reason + ")" : "") << '\n';
        if (!good) {
            std::cout << outcome.out << outcome.err;
            ++failed;
        } else if (reason) {
            ++deviating;
        }
    }
    std::cout << tests.size() << " tests, " << failed << " failed, " << deviating << " known deviations\n";
    return failed == 0 && !tests.empty() ? 0 : 1;
}

int runSuite(int argc, char** argv) {
    // The tests depend on what the service offers, so it is opened before they are registered; gtest's own words are
    // recognised by it alone.
    std::vector<std::string> own{argv[0]};
    std::vector<char*> rest{argv[0]};
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]).starts_with("--gtest_")) {
            rest.push_back(argv[i]);
        } else {
            own.emplace_back(argv[i]);
        }
    }
    const Options options = parse(own);
    // The embedded service keeps its data there; nothing of the user's is touched.
    const test_support::TempFolder home;
    setenv("KLUNORTREDI_HOME", home.path().c_str(), 1); // NOLINT(concurrency-mt-unsafe)
    conformance::openService(split(options.service));
    if (!options.deviations.empty()) {
        conformance::knownDeviations() = conformance::Deviations(test_support::readFile(options.deviations));
    }
    int count = static_cast<int>(rest.size());
    rest.push_back(nullptr); // as behind argv
    testing::InitGoogleTest(&count, rest.data());
    return options.isolate ? runIsolated(options, home) : RUN_ALL_TESTS();
}

} // namespace

int main(int argc, char** argv) {
    try {
        return runSuite(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 2;
    }
}
