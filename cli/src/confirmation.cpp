#include "confirmation.hpp"

#include "failure.hpp"

#include <fstream>

namespace klunortredi::cli {

void confirm(const std::string& question, const std::string& what) {
    std::fstream terminal("/dev/tty", std::ios::in | std::ios::out);
    if (!terminal) {
        throw Failure(ExitCode::usage, what, "there is no terminal on which to ask",
                      "add --yes to go on without being asked");
    }
    terminal << question << " [y/N] " << std::flush;
    std::string answer;
    std::getline(terminal, answer);
    if (answer != "y" && answer != "Y" && answer != "yes") {
        throw Failure(ExitCode::cancelled, what, "cancelled");
    }
}

} // namespace klunortredi::cli
