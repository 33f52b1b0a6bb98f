#include "arguments.hpp"
#include "console.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "orvik/plugin/log.hpp"
#include "orvik/plugin/path_registry.hpp"
#include "output_signals.hpp"
#include "pin.hpp"
#include "printable.hpp"
#include "service_notices.hpp"
#include "skipped_entries.hpp"
#include "standard_descriptors.hpp"
#include "verify_report.hpp"

#include <boost/filesystem/operations.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>

namespace {

using namespace klunortredi::cli;
namespace log = orvik::plugin::log;

/// Log records go to standard error when -v asks for them. Without it the one line of a failure tells enough.
void setUpLog(int verbosity) {
    constexpr log::Severity levels[] = {log::Severity::warning, log::Severity::info, log::Severity::debug,
                                        log::Severity::trace};
    static constexpr const char* names[] = {"trace", "debug", "info", "warning", "error"};
    if (verbosity > 0) {
        log::setLevel(levels[std::min<std::size_t>(static_cast<std::size_t>(verbosity) - 1, std::size(levels) - 1)]);
    }
    log::setSink([verbosity](log::Severity severity, std::string_view text) {
        if (verbosity > 0) {
            std::cerr << names[static_cast<std::size_t>(severity)] << ": " << printable(text) << '\n';
        }
    });
}

/// Takes the service library that was named instead of the one that is found.
void useService(const std::string& path) {
    if (path.empty()) {
        return;
    }
    boost::system::error_code ignored;
    if (!boost::filesystem::is_regular_file(path, ignored)) {
        throw Failure(ExitCode::service, "cannot use --service " + path, "there is no CryptoAPI service library",
                      "'klunortredi info' without the option tells what is installed");
    }
    orvik::plugin::PathRegistry::setService(path);
}

ExitCode run(const Command& command) {
    const Console console(command.options);
    PinDialog pin(command.options.pin);
    pin.install();
    Session session{command.options, console, pin};
    try {
        try {
            useService(command.options.service);
            const ExitCode code = command.run(session);
            noteSkipped(console);
            return code;
        } catch (...) {
            throw currentFailure(command.verb + " failed");
        }
    } catch (const Failure& failure) {
        noteSkipped(console);
        // Whoever asked for a verdict gets one, even when there is nothing to judge with.
        console.failure(failure, command.verb == "verify" ? verdictOf(failure) : nlohmann::ordered_json::object());
        return failure.exit();
    }
}

/// Ends the process once what it has written is out. The system takes back the memory of the libraries sooner than they
/// give it back themselves.
[[noreturn]] void end(ExitCode code) {
    std::cout.flush();
    std::fflush(nullptr);
#ifdef KLUNORTREDI_ONE_FILE
    std::_Exit(static_cast<int>(code));
#else // sanitizers look for leaks at the regular end
    std::exit(static_cast<int>(code)); // NOLINT(concurrency-mt-unsafe): there is one thread left
#endif
}

} // namespace

int main(int argc, char** argv) {
    openStandardDescriptors();
    askForNotices();
    surviveFailedOutput();
    const Command command = parse(argc, argv);
    if (!command.run) {
        return static_cast<int>(command.exit);
    }
    setUpLog(command.options.verbosity);
    end(run(command));
}
