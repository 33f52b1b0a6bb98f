#include "verbs/verbs.hpp"

#include "batch_report.hpp"
#include "console.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "requirement.hpp"
#include "signature_judge.hpp"
#include "verify_report.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

namespace klunortredi::cli {

namespace {

/// Moves the thumbprints that follow the first of --require from the files to it: a word alone does not say which it
/// is.
void gatherThumbprints(VerifyArguments& arguments) {
    std::vector<std::string>& files = arguments.files.files;
    if (arguments.require.empty() || !Requirement::isThumbprint(arguments.require.front())) {
        return;
    }
    const auto other = std::stable_partition(files.begin(), files.end(),
                                             [](const std::string& word) { return !Requirement::isThumbprint(word); });
    for (auto word = other; word != files.end(); ++word) {
        if (::access(word->c_str(), F_OK) == 0) {
            throw Failure(ExitCode::usage, "cannot verify", *word + " is both a file and a thumbprint for --require",
                          "name the file as ./" + *word);
        }
    }
    arguments.require.insert(arguments.require.end(), other, files.end());
    files.erase(other, files.end());
}

/// Options of which a file of its own is read or written, or which say nothing for several.
void refuseForMany(const VerifyArguments& arguments) {
    const std::pair<const char*, bool> ofOneFile[] = {{"--content", !arguments.content.empty()},
                                                      {"--extract", !arguments.extract.empty()},
                                                      {"--json-out", !arguments.jsonOut.empty()}};
    for (const auto& [option, given] : ofOneFile) {
        if (given) {
            throw Failure(ExitCode::usage, "cannot verify", std::string(option) + " is for one file",
                          "verify the files one by one, or leave it out");
        }
    }
}

void checkOptions(const Session& session, const VerifyArguments& arguments) {
    arguments.files.check("cannot verify");
    if (arguments.files.many()) {
        refuseForMany(arguments);
    } else if (arguments.files.files.front() == "-" && arguments.content == "-") {
        throw Failure(ExitCode::usage, "cannot verify", "standard input cannot be both the signature and its content");
    }
    if (session.options.jsonLines && session.options.json) {
        throw Failure(ExitCode::usage, "cannot verify", "--json and --json-lines ask for different documents");
    }
    if (!arguments.chain && arguments.chainOptions.any()) {
        throw Failure(ExitCode::usage, "cannot verify",
                      "--at, --with, --anchor, --usage, --require-revocation and "
                      "--offline say how chains are judged",
                      "add --chain");
    }
}

ExitCode verifyOne(Session& session, const VerifyArguments& arguments) {
    VerifyReport report(session, arguments);
    const std::string& file = arguments.files.files.front();
    try {
        const SignatureJudge judge(session, arguments);
        const FileReport result = judge.judge(file, [&](const Input& signature) { report.open(signature); });
        report.show(result);
        return result.exit;
    } catch (...) {
        const Failure failure = currentFailure("cannot verify " + file);
        report.failure(failure);
        return failure.exit();
    }
}

ExitCode verifyMany(Session& session, const VerifyArguments& arguments) {
    const SignatureJudge judge(session, arguments);
    FileNames names(arguments.files);
    ExitCode worst = ExitCode::done;
    BatchReport batch(session.console);
    try {
        while (const auto file = names.next()) {
            FileReport result;
            if (file->trouble.empty()) {
                result = judge.judge(file->name, [](const Input&) {});
            } else {
                result.name = file->name;
                result.failure = Failure(ExitCode::input, "cannot verify " + file->name, file->trouble);
                result.exit = ExitCode::input;
            }
            addTo(batch, session.console, result);
            worst = worse(worst, result.exit);
        }
        batch.end();
    } catch (...) {
        const Failure failure = currentFailure("cannot verify");
        batch.abort(failure);
        worst = worse(worst, failure.exit());
    }
    return worst;
}

} // namespace

ExitCode verify(Session& session, const VerifyArguments& given) {
    VerifyArguments arguments = given;
    gatherThumbprints(arguments);
    checkOptions(session, arguments);
    return arguments.files.many() ? verifyMany(session, arguments) : verifyOne(session, arguments);
}

} // namespace klunortredi::cli
