#include "console.hpp"

#include "printable.hpp"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cerrno>
#include <iostream>

namespace klunortredi::cli {

std::string documentText(const nlohmann::ordered_json& document) {
    nlohmann::ordered_json whole = {{"schema", 1}};
    whole.update(document);
    // Texts come from files and certificates of others: what is not UTF-8 is shown as the replacement character.
    return printableJson(whole.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace)) + '\n';
}

nlohmann::ordered_json failureDocument(const Failure& failure, const nlohmann::ordered_json& fields) {
    nlohmann::ordered_json document = fields;
    document["error"] = {{"kind", failure.kind()}, {"code", failure.code()}, {"message", failure.what()}};
    return document;
}

void Console::result(const nlohmann::ordered_json& document, const std::function<void(std::ostream&)>& text) const {
    if (options_.json) {
        std::cout << documentText(document);
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

void Console::line(const std::string& text) const {
    std::cerr << program_ << ": " << printable(text) << '\n';
}

void Console::failure(const Failure& failure, const nlohmann::ordered_json& fields) const {
    line(failure.what());
    if (options_.json) {
        std::cout << documentText(failureDocument(failure, fields));
        std::cout.flush();
    }
}

void Console::failure(const Failure& failure) const {
    this->failure(failure, nlohmann::ordered_json::object());
}

bool Console::showsProgress() const {
    return !options_.quiet && !options_.json && isatty(STDERR_FILENO) != 0;
}

} // namespace klunortredi::cli
