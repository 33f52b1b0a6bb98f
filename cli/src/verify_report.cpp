#include "verify_report.hpp"

#include "batch_report.hpp"
#include "cms_verification.hpp"
#include "console.hpp"
#include "extraction.hpp"
#include "input.hpp"
#include "printable.hpp"
#include "same_file.hpp"
#include "text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <iterator>
#include <utility>
#include <vector>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;

const char* wordOf(SignatureVerdict verdict) {
    switch (verdict) {
    case SignatureVerdict::valid:
        return "valid";
    case SignatureVerdict::invalid:
        return "invalid";
    default:
        return "unknown";
    }
}

/// true, false or null.
Json truthOf(SignatureVerdict verdict) {
    return verdict == SignatureVerdict::unknown ? Json(nullptr) : Json(verdict == SignatureVerdict::valid);
}

Json countersJson(const std::vector<CounterSignature>& counters) {
    Json list = Json::array();
    for (const CounterSignature& counter : counters) {
        const bool known = counter.certificate != nullptr;
        list.push_back({{"valid", truthOf(counter.verdict)},
                        {"verdict", wordOf(counter.verdict)},
                        {"reason", counter.reason},
                        {"subject", known ? subjectOf(*counter.certificate) : std::string{}},
                        {"serial", known ? serialOf(*counter.certificate) : std::string{}},
                        {"thumbprint", known ? thumbprintOf(*counter.certificate) : std::string{}},
                        {"signing_time", text::time(counter.signingTime)},
                        {"counter_signatures", countersJson(counter.counters)}});
    }
    return list;
}

Json signerJson(const Signer& signer) {
    const bool known = signer.certificate != nullptr;
    Json weak = Json::array();
    std::transform(signer.weak.begin(), signer.weak.end(), std::back_inserter(weak),
                   [](const Weakness& weakness) { return describe(weakness); });
    return {{"subject", known ? subjectOf(*signer.certificate) : std::string{}},
            {"issuer", known ? text::name(signer.certificate->issuerNameInfo()) : std::string{}},
            {"serial", known ? serialOf(*signer.certificate) : std::string{}},
            {"thumbprint", known ? thumbprintOf(*signer.certificate) : std::string{}},
            {"signing_time", text::time(signer.signingTime)},
            {"digest_algorithm", signer.digestAlgorithm},
            {"valid", truthOf(signer.verdict)},
            {"verdict", wordOf(signer.verdict)},
            {"reason", signer.reason},
            {"chain", signer.trust ? toJson(*signer.trust) : Json(nullptr)},
            {"chain_time", text::time(signer.chainTime)},
            {"weak", weak},
            {"timestamp", toJson(deciding(signer.timestamps))},
            {"timestamps", toJson(signer.timestamps)},
            {"counter_signatures", countersJson(signer.counters)}};
}

/// "INVALID: why", as a part of a line.
std::string headline(SignatureVerdict verdict, const std::string& reason) {
    return (verdict == SignatureVerdict::invalid ? "INVALID: " : "UNKNOWN: ") + printable(reason);
}

void printWeakElements(std::ostream& out, const Trust& trust) {
    for (const TrustElement& element : trust.elements) {
        for (const std::string& weak : element.weak) {
            out << "  weak: certificate of " << titleOf(*element.certificate) << ": " << printable(weak) << '\n';
        }
    }
}

/// Each on a line of its own, those over it further in.
void printCounters(std::ostream& out, const std::vector<CounterSignature>& counters, const std::string& indent) {
    for (const CounterSignature& counter : counters) {
        out << indent << "counter-signed by "
            << (counter.certificate ? titleOf(*counter.certificate) : std::string("an unknown signer")) << ": ";
        if (counter.verdict == SignatureVerdict::valid) {
            const std::string time = text::time(counter.signingTime);
            out << "valid" << (time.empty() ? "" : ", " + time + " (its signer's own statement)");
        } else {
            out << (counter.verdict == SignatureVerdict::invalid ? "INVALID: " : "not judged: ")
                << printable(counter.reason);
        }
        out << '\n';
        printCounters(out, counter.counters, indent + "  ");
    }
}

void printSigner(std::ostream& out, const Signer& signer, bool alone) {
    if (signer.certificate) {
        out << "  signer       " << titleOf(*signer.certificate) << '\n';
    } else {
        out << "  signer       unknown: its certificate is missing\n";
    }
    if (signer.verdict != SignatureVerdict::valid) {
        out << "  verdict      " << headline(signer.verdict, signer.reason) << '\n';
    } else if (!alone) {
        out << "  verdict      valid\n";
    }
    if (signer.certificate) {
        out << "  issuer       " << printableName(text::name(signer.certificate->issuerNameInfo())) << '\n';
        out << "  serial       " << serialOf(*signer.certificate) << '\n';
        out << "  thumbprint   " << thumbprintOf(*signer.certificate) << '\n';
    }
    const std::string time = text::time(signer.signingTime);
    out << "  signing time " << (time.empty() ? "not stated" : time + " (the signer's own statement)") << '\n';
    for (const Weakness& weakness : signer.weak) {
        out << "  weak: " << describe(weakness) << '\n';
    }
    print(out, signer.timestamps);
    printCounters(out, signer.counters, "  ");
    if (signer.trust) {
        printWeakElements(out, *signer.trust);
        const std::string at = text::time(signer.chainTime);
        out << "  chain        " << printable(describe(*signer.trust)) << (at.empty() ? "" : ", at " + at) << '\n';
        out << "  revocation   " << printable(describe(signer.trust->revocation)) << '\n';
    }
}

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
    std::transform(verdict.signers.begin(), verdict.signers.end(), std::back_inserter(signers), signerJson);
    return {{"valid", truthOf(verdict.verdict)},
            {"verdict", wordOf(verdict.verdict)},
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
        printSigner(out, signer, verdict.signers.size() == 1);
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
    if (session_.options.jsonLines) { // as in a batch
        addName(document, "file", name);
    }
    document.update(toJson(verdict));
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
    document.update(toJson(*report.verdict));
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
