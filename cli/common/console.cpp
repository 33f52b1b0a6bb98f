#include "console.hpp"

#include "printable.hpp"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cerrno>
#include <iostream>

namespace klunortredi::cli {

namespace {

void printJson(const nlohmann::ordered_json& document) {
    nlohmann::ordered_json whole = {{"schema", 1}};
    whole.update(document);
    // Texts come from files and certificates of others: what is not UTF-8 is shown as the replacement character.
    std::cout << whole.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
}

} // namespace

void Console::result(const nlohmann::ordered_json& document, const std::function<void(std::ostream&)>& text) const {
    if (options_.json) {
        printJson(document);
    } else {
        text(std::cout);
    }
    errno = 0;
    if (!std::cout.flush()) {
        throw fileFailure("cannot write the result", errno == 0 ? EIO : errno);
    }
}

void Console::note(const std::string& line) const {
    if (!options_.quiet) {
        std::cerr << printable(line) << '\n';
    }
}

void Console::failure(const Failure& failure) const {
    std::cerr << program_ << ": " << printable(failure.what()) << '\n';
    if (options_.json) {
        printJson({{"error", {{"kind", failure.kind()}, {"code", failure.code()}, {"message", failure.what()}}}});
        std::cout.flush();
    }
}

bool Console::showsProgress() const {
    return !options_.quiet && !options_.json && isatty(STDERR_FILENO) != 0;
}

} // namespace klunortredi::cli
