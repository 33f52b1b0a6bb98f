#include "console.hpp"

#include "orvik/plugin/hex.hpp"
#include "printable.hpp"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <cerrno>
#include <iostream>

namespace klunortredi::cli {

namespace {

constexpr int inLines = 2; // blanks by which members stand further in
constexpr int inOneLine = -1;

/// Texts come from files and certificates of others: what is not UTF-8 in them is escaped.
void escapeTexts(nlohmann::ordered_json& value) {
    if (value.is_string()) {
        auto& text = value.get_ref<std::string&>();
        if (!isUtf8(text)) {
            text = asUtf8(text);
        }
        return;
    }
    if (value.is_structured()) {
        for (auto& part : value) {
            escapeTexts(part);
        }
    }
}

std::string dump(nlohmann::ordered_json value, int indent) {
    escapeTexts(value);
    return printableJson(value.dump(indent));
}

} // namespace

void addName(nlohmann::ordered_json& document, const std::string& key, const std::string& name) {
    document[key] = name;
    if (!isUtf8(name)) {
        document[key + "_hex"] = orvik::plugin::hex::encode(name);
    }
}

std::string jsonText(const nlohmann::ordered_json& value) {
    return dump(value, inLines);
}

std::string documentText(const nlohmann::ordered_json& document, JsonForm form) {
    nlohmann::ordered_json whole = {{"schema", 1}};
    whole.update(document);
    return dump(whole, form == JsonForm::lines ? inOneLine : inLines) + '\n';
}

nlohmann::ordered_json failureDocument(const Failure& failure, const nlohmann::ordered_json& fields) {
    nlohmann::ordered_json document = fields;
    document["error"] = {{"kind", failure.kind()}, {"code", failure.code()}, {"message", failure.what()}};
    return document;
}

void Console::result(const nlohmann::ordered_json& document, const std::function<void(std::ostream&)>& text) const {
    if (json()) {
        write(documentText(document, form()));
        return;
    }
    text(std::cout);
    flush();
}

void Console::write(std::string_view text) const {
    std::cout << text;
    flush();
}

void Console::flush() {
    errno = 0;
    if (!std::cout.flush()) {
        throw fileFailure("cannot write the result", errno == 0 ? EIO : errno);
    }
}

JsonForm Console::form() const noexcept {
    if (options_.jsonLines) {
        return JsonForm::lines;
    }
    return options_.json ? JsonForm::document : JsonForm::none;
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
    if (json()) {
        std::cout << documentText(failureDocument(failure, fields), form());
        std::cout.flush();
    }
}

void Console::failure(const Failure& failure) const {
    this->failure(failure, nlohmann::ordered_json::object());
}

bool Console::showsProgress() const {
    return !options_.quiet && !json() && isatty(STDERR_FILENO) != 0;
}

} // namespace klunortredi::cli
