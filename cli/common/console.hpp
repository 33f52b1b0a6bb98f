#pragma once

/// What a person or a program sees: results on standard output, everything else on standard error.

#include "failure.hpp"
#include "options.hpp"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <ostream>
#include <string>
#include <utility>

namespace klunortredi::cli {

/// A JSON document as it is written, with its schema number.
std::string documentText(const nlohmann::ordered_json& document);
/// The document of a failure, in which `fields` come first.
nlohmann::ordered_json failureDocument(const Failure& failure, const nlohmann::ordered_json& fields);

class Console {
public:
    /// `program` is whom the line of a failure names.
    explicit Console(const Options& options, std::string program = "klunortredi")
        : options_(options), program_(std::move(program)) {}

    /// The verb's one result: the document with --json (with its schema number), else what `text` prints.
    void result(const nlohmann::ordered_json& document, const std::function<void(std::ostream&)>& text) const;
    /// A remark for the person on standard error; silent with --quiet.
    void note(const std::string& line) const;
    /// The one line of a failure, and its JSON document, in which `fields` come first.
    void failure(const Failure& failure, const nlohmann::ordered_json& fields) const;
    void failure(const Failure& failure) const;
    /// A line on standard error that says what went wrong.
    void line(const std::string& text) const;

    [[nodiscard]] bool json() const noexcept { return options_.json; }
    /// Whether a progress bar is of use to anyone.
    [[nodiscard]] bool showsProgress() const;

private:
    const Options& options_;
    std::string program_;
};

} // namespace klunortredi::cli
