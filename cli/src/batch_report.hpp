#pragma once

/// Results of a verb that works on many files, each shown when it is done.

#include "failure.hpp"

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <ostream>

namespace klunortredi::cli {

class Console;

/// Shows each result at once: what was shown stays, however the process ends, and none is kept in memory. With --json
/// the results are the entries of "files" in one document, which is whole after end(); with --json-lines each is a
/// document on a line of its own; else they are words.
class BatchReport {
public:
    explicit BatchReport(const Console& console) : console_(console) {}

    /// Throws Failure (exit 3) when standard output cannot be written.
    void add(const nlohmann::ordered_json& result, const std::function<void(std::ostream&)>& text);
    /// Ends the document of --json.
    void end();
    /// The same after a file's failure ended the batch: the document repeats it as its "error".
    void endEarly(const Failure& failure);
    /// The same for a failure that is not of one file: its line goes to standard error too.
    void abort(const Failure& failure);

private:
    void open();

    const Console& console_;
    bool opened_ = false;
    bool first_ = true;
};

/// The graver of two exit codes of one batch: that of a defect before a cancelled batch, a wrong PIN, wrong usage, an
/// invalid signature, a refusal of the service, unreadable input, the network, an untrusted chain.
ExitCode worse(ExitCode one, ExitCode other);

} // namespace klunortredi::cli
