#include "arguments.hpp"
#include "output_signals.hpp"
#include "refusal.hpp"
#include "service_notices.hpp"
#include "standard_descriptors.hpp"

#include <sys/stat.h>

namespace {

using namespace klunortredi;

cli::ExitCode run(const admin::Command& command) {
    const cli::Console console(command.options, admin::programName);
    admin::Session session{command.options, console};
    try {
        try {
            return command.run(session);
        } catch (...) {
            throw admin::currentRefusal(command.verb + " failed");
        }
    } catch (const cli::Failure& failure) {
        console.failure(failure);
        return failure.exit();
    }
}

} // namespace

int main(int argc, char** argv) {
    cli::openStandardDescriptors();
    cli::askForNotices();
    cli::surviveFailedOutput();
    // Whatever this program writes is a key or lies beside one.
    ::umask(S_IRWXG | S_IRWXO);
    const admin::Command command = admin::parse(argc, argv);
    return static_cast<int>(command.run ? run(command) : command.exit);
}
