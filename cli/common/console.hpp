#pragma once

/// What a person or a program sees: results on standard output, everything else on standard error.

#include "failure.hpp"
#include "options.hpp"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace klunortredi::cli {

/// How results are written.
enum class JsonForm {
    none,     ///< words
    document, ///< one document in several lines
    lines,    ///< a document on each line
};

/// Adds the name of a file: as "key", and where it is not UTF-8 its octets as "key_hex" too.
void addName(nlohmann::ordered_json& document, const std::string& key, const std::string& name);

/// A JSON value as it is written, in several lines; nothing in it moves a terminal's cursor.
std::string jsonText(const nlohmann::ordered_json& value);
/// A JSON document as it is written, with its schema number and a line end.
std::string documentText(const nlohmann::ordered_json& document, JsonForm form = JsonForm::document);
/// The document of a failure, in which `fields` come first.
nlohmann::ordered_json failureDocument(const Failure& failure, const nlohmann::ordered_json& fields);

class Console {
public:
    /// `program` is whom the line of a failure names.
    explicit Console(const Options& options, std::string program = "klunortredi")
        : options_(options), program_(std::move(program)) {}

    /// A result: the document with --json or --json-lines (with its schema number), else what `text` prints.
    void result(const nlohmann::ordered_json& document, const std::function<void(std::ostream&)>& text) const;
    /// Writes that to standard output at once. Throws Failure (exit 3) when it cannot be written.
    void write(std::string_view text) const;
    /// A remark for the person on standard error; silent with --quiet.
    void note(const std::string& line) const;
    /// The one line of a failure, and its JSON document, in which `fields` come first.
    void failure(const Failure& failure, const nlohmann::ordered_json& fields) const;
    void failure(const Failure& failure) const;
    /// A line on standard error that says what went wrong.
    void line(const std::string& text) const;

    [[nodiscard]] JsonForm form() const noexcept;
    [[nodiscard]] bool json() const noexcept { return form() != JsonForm::none; }
    /// Whether a progress bar is of use to anyone.
    [[nodiscard]] bool showsProgress() const;

private:
    static void flush();

    const Options& options_;
    std::string program_;
};

} // namespace klunortredi::cli
