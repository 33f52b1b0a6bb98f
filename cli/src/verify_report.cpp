#include "verify_report.hpp"

#include "batch_report.hpp"
#include "cms_verification.hpp"
#include "console.hpp"
#include "extraction.hpp"
#include "input.hpp"
#include "printable.hpp"
#include "same_file.hpp"
#include "signature_report.hpp"
#include "text.hpp"
#include "verdict_words.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <utility>
#include <vector>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;

/// The line that says on standard error why there is no verdict.
std::string whyUnknown(const FileReport& report) {
    return "cannot verify " + report.name + ": " + report.verdict->reason;
}

/// Refuses an output that is a file of the options which the verdict is made from.
void refuseInputs(const VerifyArguments& arguments, const std::string& output) {
    std::vector<std::string> inputs = {arguments.content, arguments.signerCertificate};
    for (const auto* more : {&arguments.chainOptions.with, &arguments.chainOptions.anchors}) {
        inputs.insert(inputs.end(), more->begin(), more->end());
    }
    if (std::any_of(inputs.begin(), inputs.end(), [&](const std::string& path) { return isSameFile(path, output); })) {
        throw Failure(ExitCode::usage, "cannot write " + output, "it is read for the verdict");
    }
}

/// Refuses a --json-out that is another file of the same call.
void refuseJsonOut(const VerifyArguments& arguments) {
    const std::string& path = arguments.jsonOut;
    const std::string& file = arguments.files.files.front();
    const std::pair<std::string, const char*> rows[] = {
        {file, "--json-out names the signature itself"},
        {arguments.extract, "--extract and --json-out name the same file"},
        {arguments.content.empty() ? CmsVerification::contentBeside(file) : std::string{},
         "the content of a detached signature is looked for there"},
    };
    for (const auto& [other, why] : rows) {
        if (isSameFile(path, other)) {
            throw Failure(ExitCode::usage, "cannot write " + path, why);
        }
    }
    refuseInputs(arguments, path);
}

} // namespace

Json toJson(const Verdict& verdict) {
    Json signers = Json::array();
    std::transform(verdict.signers.begin(), verdict.signers.end(), std::back_inserter(signers),
                   [](const Signer& signer) { return toJson(signer); });
    return {{"valid", truth(verdict.verdict)},
            {"verdict", jsonWord(verdict.verdict)},
            {"format", verdict.format},
            {"reason", verdict.reason},
            {"signers", signers},
            {"timestamp", verdict.signers.empty() ? Json(nullptr) : toJson(deciding(verdict.signers[0].timestamps))},
            {"chain", verdict.trust ? toJson(*verdict.trust) : Json(nullptr)},
            {"covered", verdict.covered},
            {"not_checked", verdict.notChecked}};
}

void print(std::ostream& out, const std::string& name, const Verdict& verdict) {
    out << printable(name) << ": "
        << (verdict.verdict == SignatureVerdict::valid ? "valid " + verdict.format + " signature"
                                                       : headline(verdict.verdict, verdict.reason))
        << '\n';
    for (const Signer& signer : verdict.signers) {
        print(out, signer, verdict.signers.size() == 1);
    }
    for (const std::string& part : verdict.covered) {
        out << "  covered      " << (part == "/" ? "the whole document" : printable(part)) << '\n';
    }
    if (!verdict.notChecked.empty()) {
        out << "  not checked  " << printable(text::joined(verdict.notChecked)) << '\n';
    }
}

VerifyReport::VerifyReport(const Session& session, const VerifyArguments& arguments)
    : session_(session), contentTakesOutput_(!arguments.extract.empty() && isStandardOutput(arguments.extract)),
      path_(arguments.jsonOut) {
    if (!path_.empty() && isStandardOutput(path_)) {
        throw Failure(ExitCode::usage, "cannot use --json-out " + path_, "it takes the name of a file",
                      "--json writes to standard output");
    }
    refuseJsonOut(arguments);
    refuseInputs(arguments, arguments.extract);
    if (contentTakesOutput_ && session.options.json && path_.empty()) {
        throw Failure(ExitCode::usage, "cannot use --json with --extract -", "standard output belongs to the content",
                      "name a file with --json-out");
    }
}

void VerifyReport::open(const Input& signature) {
    if (path_.empty()) {
        return;
    }
    if (signature.isFile(path_)) {
        const std::string refused = std::exchange(path_, {}); // the failure must not be written there either
        throw Failure(ExitCode::usage, "cannot write " + refused, "--json-out names the signature itself");
    }
    document_ = std::make_unique<OutputFile>(path_, session_.options.force);
}

void VerifyReport::show(const FileReport& report) {
    if (report.failure) {
        failure(*report.failure);
        return;
    }
    result(report.name, *report.verdict);
    if (report.exit == ExitCode::service && !contentTakesOutput_) { // else the words are there already
        session_.console.line(whyUnknown(report));
    }
}

void VerifyReport::result(const std::string& name, const Verdict& verdict) {
    Json document = Json::object();
    if (document_ || session_.console.form() != JsonForm::none) { // it reads each certificate's names anew
        if (session_.options.jsonLines) {                         // as in a batch
            addName(document, "file", name);
        }
        document.update(toJson(verdict));
    }
    if (document_) {
        document_->write(documentText(document));
        document_->commit();
    }
    if (contentTakesOutput_) {
        print(std::cerr, name, verdict);
        return;
    }
    session_.console.result(document, [&](std::ostream& out) { print(out, name, verdict); });
}

void VerifyReport::failure(const Failure& failure) {
    if (contentTakesOutput_) {
        session_.console.line(failure.what());
    } else {
        session_.console.failure(failure, verdictOf(failure));
    }
    try {
        writeFailure(failure);
    } catch (const Failure& second) {
        session_.console.line(second.what());
    }
}

void VerifyReport::writeFailure(const Failure& failure) {
    if (path_.empty()) {
        return;
    }
    if (!document_) { // it failed before the signature was open
        document_ = std::make_unique<OutputFile>(path_, session_.options.force);
    }
    document_->write(documentText(failureDocument(failure, verdictOf(failure))));
    document_->commit();
}

void addTo(BatchReport& batch, const Console& console, const FileReport& report) {
    Json document = Json::object();
    addName(document, "file", report.name);
    if (report.failure) {
        console.line(report.failure->what());
        document.update(failureDocument(*report.failure, verdictOf(*report.failure)));
        batch.add(document, [](std::ostream&) {});
        return;
    }
    if (console.form() != JsonForm::none) {
        document.update(toJson(*report.verdict));
    }
    batch.add(document, [&](std::ostream& out) { print(out, report.name, *report.verdict); });
    if (report.exit == ExitCode::service) {
        console.line(whyUnknown(report));
    }
}

Json verdictOf(const Failure& failure) {
    if (failure.exit() != ExitCode::service) {
        return Json::object();
    }
    return {{"valid", nullptr}, {"verdict", "unknown"}, {"reason", failure.what()}};
}

} // namespace klunortredi::cli
