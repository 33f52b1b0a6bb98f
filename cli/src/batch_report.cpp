#include "batch_report.hpp"

#include "console.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;

/// From the gravest to the lightest.
constexpr std::array<ExitCode, 10> order = {
    ExitCode::defect,  ExitCode::cancelled, ExitCode::pin,     ExitCode::usage,     ExitCode::no,
    ExitCode::service, ExitCode::input,     ExitCode::network, ExitCode::untrusted, ExitCode::done};

/// The members of a document, without its braces and its schema number, as lines that stand `depth` blanks further in.
std::string indented(const Json& value, std::size_t depth) {
    const std::string blanks(depth, ' ');
    std::string lines = blanks;
    for (const char c : jsonText(value)) { // texts in it have no raw line ends
        lines += c;
        lines += c == '\n' ? blanks : "";
    }
    return lines;
}

} // namespace

void BatchReport::open() {
    if (!opened_) {
        console_.write("{\n  \"schema\": 1,\n  \"files\": [");
        opened_ = true;
    }
}

void BatchReport::add(const Json& result, const std::function<void(std::ostream&)>& text) {
    if (console_.form() != JsonForm::document) {
        console_.result(result, text);
        return;
    }
    open();
    console_.write((first_ ? "\n" : ",\n") + indented(result, 4));
    first_ = false;
}

void BatchReport::end() {
    if (console_.form() == JsonForm::document) {
        open();
        console_.write(first_ ? "]\n}\n" : "\n  ]\n}\n");
    }
}

void BatchReport::endEarly(const Failure& failure) {
    if (console_.form() != JsonForm::document) {
        return;
    }
    open();
    const std::string error = indented(failureDocument(failure, Json::object())["error"], 2);
    console_.write(std::string(first_ ? "" : "\n  ") + "],\n  \"error\": " + error.substr(2) + "\n}\n");
}

void BatchReport::abort(const Failure& failure) {
    if (console_.form() != JsonForm::document) {
        console_.failure(failure);
        return;
    }
    console_.line(failure.what());
    try {
        endEarly(failure);
    } catch (const Failure& second) { // standard output cannot be written, which may be why the batch ends
        if (std::string_view(second.what()) != failure.what()) {
            console_.line(second.what());
        }
    }
}

ExitCode worse(ExitCode one, ExitCode other) {
    return *std::find_if(order.begin(), order.end(), [&](ExitCode code) { return code == one || code == other; });
}

} // namespace klunortredi::cli
