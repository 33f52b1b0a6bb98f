#pragma once

/// How a verdict is shown: words for people, JSON for programs, each where it belongs.

#include "failure.hpp"
#include "output_file.hpp"
#include "signature_judge.hpp"
#include "verbs/verbs.hpp"
#include "verdict.hpp"

#include <nlohmann/json_fwd.hpp>

#include <memory>
#include <ostream>
#include <string>

namespace klunortredi::cli {

class BatchReport;
class Console;
class Input;

nlohmann::ordered_json toJson(const Verdict& verdict);
/// `name` is the file that was judged.
void print(std::ostream& out, const std::string& name, const Verdict& verdict);

/// Where results go: with `--extract -` standard output belongs to the content alone.
class VerifyReport {
public:
    /// Throws Failure (exit 2) for options that contradict each other.
    VerifyReport(const Session& session, const VerifyArguments& arguments);

    /// Makes the file for JSON, before any work is done. Throws Failure when it names the signature itself (exit 2) or
    /// cannot be made (exit 3).
    void open(const Input& signature);
    void show(const FileReport& report);
    /// The line of a failure on standard error and its JSON document.
    void failure(const Failure& failure);

private:
    void result(const std::string& name, const Verdict& verdict);
    void writeFailure(const Failure& failure);

    const Session& session_;
    bool contentTakesOutput_;
    std::string path_;                     ///< of --json-out; empty: no such file
    std::unique_ptr<OutputFile> document_; ///< of --json-out, once it is open
};

/// Adds what came of one of many files.
void addTo(BatchReport& batch, const Console& console, const FileReport& report);

/// The fields that say that nothing could be judged, for a failure of the service (exit 4); else none.
nlohmann::ordered_json verdictOf(const Failure& failure);

} // namespace klunortredi::cli
