#include "verbs/verbs.hpp"

#include "batch_report.hpp"
#include "capi/constants.hpp"
#include "certificates.hpp"
#include "console.hpp"
#include "crypto/wincrypt/signature_factory.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "file_names.hpp"
#include "input.hpp"
#include "message_signing.hpp"
#include "options.hpp"
#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/ssl/xmldsig_creator.hpp"
#include "output_file.hpp"
#include "output_names.hpp"
#include "pem.hpp"
#include "pending_outputs.hpp"
#include "pin.hpp"
#include "printable.hpp"
#include "same_file.hpp"
#include "signing_certificate.hpp"
#include "text.hpp"
#include "timestamping.hpp"
#include "trust.hpp"

#include <boost/filesystem/path.hpp>
#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <optional>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
using orvik::plugin::FileInfo;
using orvik::plugin::crypto::format::SignatureRequest;

/// "OID=TYPE:VALUE" into its three texts.
SignatureRequest::Attribute parseAttribute(const std::string& option) {
    const auto equals = option.find('=');
    const auto colon = option.find(':', equals == std::string::npos ? 0 : equals);
    if (equals == std::string::npos || colon == std::string::npos || equals == 0) {
        throw Failure(ExitCode::usage, "cannot use --attribute " + option, "it is not of the form OID=TYPE:VALUE",
                      "for example 1.2.3.4=UTF8String:text");
    }
    text::checkOid("--attribute", option.substr(0, equals));
    return {option.substr(equals + 1, colon - equals - 1), option.substr(0, equals), option.substr(colon + 1)};
}

/// DER of the certificates between the signer's and the root, as the stores have them. The root stays out: whoever
/// verifies must have it from elsewhere.
std::vector<std::string> issuersOf(const orvik::plugin::crypto::ICertificate& certificate, const std::string& format) {
    if (format == orvik::plugin::crypto::constant::signature_xmldsig) {
        throw Failure(ExitCode::usage, "cannot sign", "--include-chain is not for signed XML documents");
    }
    const Trust chain = judgeChain(certificate, {});
    if ((chain.status & capi::CERT_TRUST_IS_PARTIAL_CHAIN) != 0) {
        const auto& last = chain.elements.empty() ? certificate : *chain.elements.back().certificate;
        throw Failure(ExitCode::service, "cannot include the chain",
                      "the issuer's certificate is missing (" + printableName(text::name(last.issuerNameInfo())) + ")",
                      "add it with 'klunortredi certs add FILE --store ca'");
    }
    std::vector<std::string> issuers;
    for (std::size_t i = 1; i < chain.elements.size(); ++i) {
        const auto& issuer = *chain.elements[i].certificate;
        if (issuer.subject() != issuer.issuer()) {
            issuers.push_back(issuer.raw());
        }
    }
    return issuers;
}

/// One signature on its way to the disk.
struct Signed {
    Json result;
    std::unique_ptr<OutputFile> output; ///< null: nothing is to be written
};

/// One batch: a signer, a format, and where the signatures go.
class Batch {
public:
    Batch(Session& session, const SignArguments& arguments)
        : session_(session), arguments_(arguments), factory_(arguments.format) {
        const SignerArguments& signer = arguments.signer;
        if (isXml() && (signer.byKeyIdentifier || signer.pss)) {
            throw Failure(ExitCode::usage, "cannot sign", "--by-key-id and --pss are not for signed XML documents");
        }
        checkAuthorities("--timestamp", arguments.timestamps);
        signer_ = chooseSigner(session, signer);
        title_ = titleOf(*signer_.certificate);
        for (const std::string& attribute : arguments.attributes) {
            signer_.attributes.push_back(parseAttribute(attribute));
        }
        if (isXml()) {
            checkXmlAttributes();
        }
        if (!isXml() && !signer.noSigningCertificate) {
            nameSigningCertificate(signer_.attributes, *signer_.certificate);
        }
        if (arguments.includeChain) {
            signer_.issuers = issuersOf(*signer_.certificate, arguments.format);
        }
    }

    /// Signs one file; what came of it, once its signature has reached the disk and has its name.
    Signed sign(const std::string& file) {
        const std::string path = outputOf(file);
        if (arguments_.skipExisting && isThere(path)) {
            return {resultOf(file, path, {{"skipped", true}}), nullptr};
        }
        Input input(file);
        if (input.raw().peek() == std::istream::traits_type::eof()) {
            input.check();
            throw Failure(ExitCode::input, "cannot sign " + input.name(), "it is empty",
                          "a signature needs something to sign");
        }
        auto output = std::make_unique<OutputFile>(path, session_.options.force);
        OutputFile& out = *output;
        try {
            write(input, out);
        } catch (...) {
            throw currentFailure("cannot sign " + input.name());
        }
        return {resultOf(file, out.path(), {{"bytes", out.size()}}), std::move(output)};
    }

    /// Refuses, before anything is written, a batch in which one signature would replace another, or a file yet to be
    /// signed; without --keep-going also a list with entries that are not names.
    void checkOutputs(FileNames& names) const {
        OutputNames outputs;
        eachOutput(
            names,
            [&](const FileName& file) {
                if (!file.trouble.empty() && !arguments_.keepGoing) {
                    throw Failure(ExitCode::input, "cannot sign " + file.name, file.trouble);
                }
            },
            [&](const FileName&, const std::string& path) { outputs.add(path); });
        if (!outputs.suspicious()) {
            return;
        }
        eachOutput(
            names, [](const FileName&) {},
            [&](const FileName& file, const std::string& path) {
                if (!outputs.repeats(path)) {
                    return;
                }
                const bool isInput = path == file.name;
                throw Failure(ExitCode::usage, "cannot sign " + file.name,
                              isInput ? "a signature of this batch would replace it"
                                      : "its signature would replace " + path + ", another file of this batch",
                              "sign it by itself, or use --out or --out-dir");
            });
    }

    /// The signer's name for a person to read.
    [[nodiscard]] const std::string& signer() const { return title_; }

private:
    [[nodiscard]] Json resultOf(const std::string& file, const std::string& output, const Json& more) const {
        Json result = Json::object();
        addName(result, "input", file);
        addName(result, "output", output);
        result["format"] = arguments_.format;
        result.update(more);
        return result;
    }

    static bool isThere(const std::string& path) {
        struct stat status {};
        return ::lstat(path.c_str(), &status) == 0;
    }

    /// Calls `named` for each entry, and `path` for each file that must not be another's output: what is written, and
    /// with --force what is signed too.
    void eachOutput(FileNames& names, const std::function<void(const FileName&)>& named,
                    const std::function<void(const FileName&, const std::string&)>& path) const {
        names.rewind();
        while (const auto file = names.next()) {
            named(*file);
            if (!file->trouble.empty() || outputOf(file->name) == "-") {
                continue;
            }
            if (session_.options.force) {
                path(*file, file->name);
            }
            path(*file, outputOf(file->name));
        }
        names.rewind();
    }

    /// FILE without its extension, followed by the format's suffix, beside FILE or in --out-dir.
    [[nodiscard]] std::string outputOf(const std::string& file) const {
        if (!arguments_.out.empty()) {
            return arguments_.out;
        }
        if (file == "-") {
            return "-";
        }
        const boost::filesystem::path path(file);
        const boost::filesystem::path folder =
            arguments_.outDir.empty() ? path.parent_path() : boost::filesystem::path(arguments_.outDir);
        return (folder / path.stem()).string() + factory_.extension(FileInfo(file));
    }

    [[nodiscard]] bool isXml() const { return arguments_.format == orvik::plugin::crypto::constant::signature_xmldsig; }

    void write(Input& input, OutputFile& out) {
        const auto plain = [&out](std::string_view octets) { out.write(octets); };
        if (isXml()) {
            const auto document = signedDocument(input);
            stamp({reinterpret_cast<const char*>(document.data()), document.size()}, plain);
        } else if (session_.options.pem) {
            PemWriter pem(plain, "CMS");
            message(input, [&pem](std::string_view octets) { pem.write(octets); });
            pem.finish();
        } else {
            message(input, plain);
        }
    }

    /// A CMS message, with a time-stamp where one is asked for; then all of it is in memory.
    void message(Input& input, const MessageSigning::Output& output) {
        if (arguments_.timestamps.empty()) {
            stream(input, output);
            return;
        }
        std::string signature;
        stream(input, [&](std::string_view octets) {
            if (octets.size() > largestToStamp - signature.size()) {
                throw Failure(ExitCode::input, "cannot time-stamp the signature of " + input.name(),
                              "it is larger than " + std::to_string(largestToStamp >> 20U) + " MiB",
                              "sign it detached");
            }
            signature += octets;
        });
        stamp(signature, output);
    }

    /// Passes the signature on, with a time-stamp where one is asked for.
    void stamp(std::string_view signature, const MessageSigning::Output& output) const {
        if (arguments_.timestamps.empty()) {
            output(signature);
            return;
        }
        const auto stamped = withTimestamp(arguments_.format, signature, arguments_.timestamps);
        output({reinterpret_cast<const char*>(stamped.data()), stamped.size()});
    }

    /// A CMS message into `output` while it is made.
    void stream(Input& input, const MessageSigning::Output& output) {
        MessageSigning signing(session_, signer_, factory_.creator(request_), "cannot sign " + input.name());
        signing.open(output, input.size());
        signing.take(input);
        signing.finish();
    }

    std::vector<unsigned char> signedDocument(Input& input) {
        const std::string what = "cannot sign " + input.name();
        orvik::plugin::ssl::xmldsig::Creator::Params params;
        params.properties = !arguments_.signer.noSigningCertificate;
        params.certificate = signer_.certificate;
        params.attributes = signer_.attributes;
        const auto creator = factory_.creator(request_);
        creator->initialize(params);
        feed(session_, input, *creator, what);
        std::vector<unsigned char> out;
        if (!creator->finalize(out)) {
            throw session_.pin.refusal(what);
        }
        return out;
    }

    /// XAdES (ETSI EN 319 132-1) has a place for the signing time and for no other signed attribute of CMS.
    void checkXmlAttributes() const {
        const std::string what = "cannot use --attribute";
        for (const SignatureRequest::Attribute& attribute : signer_.attributes) {
            if (attribute.oid != orvik::plugin::oid::signingTime || signer_.attributes.size() > 1) {
                throw Failure(ExitCode::usage, what,
                              "a signed XML document has the signing time and no other signed attribute",
                              "the signing time is 1.2.840.113549.1.9.5=UTCTime:2026-01-31T12:00:00Z");
            }
            if (arguments_.signer.noSigningCertificate) {
                throw Failure(ExitCode::usage, what,
                              "--no-signing-certificate leaves out the properties in which the signing time is");
            }
        }
    }

    Session& session_;
    const SignArguments& arguments_;
    orvik::plugin::wincrypt::SignatureFactory factory_;
    SignerChoice signer_;
    std::string title_;
    SignatureRequest request_;
};

void checkOptions(const Session& session, const SignArguments& arguments) {
    arguments.files.check("cannot sign");
    const auto& files = arguments.files.files;
    const bool many = arguments.files.many();
    const bool toOutput = !many && (isStandardOutput(arguments.out) || (files.front() == "-" && arguments.out.empty()));
    const bool json = session.options.json || session.options.jsonLines;
    const struct {
        bool wrong;
        const char* why;
        const char* next;
    } rows[] = {
        {many && !arguments.out.empty(), "--out names one file, but several are to be signed", "use --out-dir"},
        {many && std::find(files.begin(), files.end(), "-") != files.end(),
         "standard input is signed by itself, its signature goes to standard output", "name it alone, or use --out"},
        {!arguments.out.empty() && !arguments.outDir.empty(), "--out and --out-dir both say where it goes", ""},
        {toOutput && json, "standard output belongs to the signature", "name a file with --out"},
        {toOutput && arguments.skipExisting, "--skip-existing is for files", "name a file with --out"},
        {session.options.force && arguments.skipExisting, "--force and --skip-existing contradict each other", ""},
        {session.options.json && session.options.jsonLines, "--json and --json-lines ask for different documents", ""},
        {arguments.files.from == "-" && session.options.pin.descriptor == STDIN_FILENO,
         "standard input cannot be both the list of files and the PIN", ""},
    };
    for (const auto& row : rows) {
        if (row.wrong) {
            throw Failure(ExitCode::usage, "cannot sign", row.why, row.next);
        }
    }
}

void print(std::ostream& out, const Json& file, const std::string& signer) {
    out << printable(file["input"].get<std::string>()) << " -> " << printable(file["output"].get<std::string>());
    if (file.contains("skipped")) {
        out << " is there already\n";
    } else {
        out << " (" << file["format"].get<std::string>() << ", " << file["bytes"] << " bytes), signed by " << signer
            << '\n';
    }
}

/// The files of a batch on their way from the list to the report.
class Run {
public:
    Run(const Session& session, const SignArguments& arguments, Batch& batch)
        : session_(session), arguments_(arguments), batch_(batch), report_(session.console) {}

    ExitCode all(FileNames& names) {
        try {
            while (!ended_) {
                const auto file = names.next();
                if (!file) {
                    break;
                }
                one(*file);
            }
            pending_.finish();
            if (ended_) {
                report_.endEarly(*ended_);
            } else {
                report_.end();
            }
        } catch (...) {
            const Failure failure = currentFailure("cannot sign");
            report_.abort(failure);
            worst_ = worse(worst_, failure.exit());
        }
        return worst_;
    }

private:
    void one(const FileName& file) {
        try {
            if (!file.trouble.empty()) {
                throw Failure(ExitCode::input, "cannot sign " + file.name, file.trouble);
            }
            Signed made = batch_.sign(file.name);
            pending_.add(std::move(made.output),
                         [this, name = file.name, result = std::move(made.result)](const auto& failure) {
                             if (failure) {
                                 failed(name, *failure);
                             } else {
                                 done(result);
                             }
                         });
        } catch (...) {
            const Failure failure = currentFailure("cannot sign " + file.name);
            pending_.finish();
            failed(file.name, failure);
            return;
        }
        pending_.flushWhenFull();
    }

    void done(const Json& result) {
        if (result["output"] != "-") { // else standard output is the signature's
            report_.add(result, [&](std::ostream& out) { print(out, result, batch_.signer()); });
        }
    }

    void failed(const std::string& file, const Failure& failure) {
        session_.console.line(failure.what());
        Json result = Json::object();
        addName(result, "input", file);
        result.update(failureDocument(failure, Json::object()));
        report_.add(result, [](std::ostream&) {});
        worst_ = worse(worst_, failure.exit());
        // After a refused PIN every further file would cost another try.
        if (!arguments_.keepGoing || failure.exit() == ExitCode::pin || failure.exit() == ExitCode::cancelled) {
            ended_ = failure;
        }
    }

    const Session& session_;
    const SignArguments& arguments_;
    Batch& batch_;
    BatchReport report_;
    PendingOutputs pending_;
    std::optional<Failure> ended_; ///< why no further file is signed
    ExitCode worst_ = ExitCode::done;
};

} // namespace

ExitCode sign(Session& session, const SignArguments& arguments) {
    checkOptions(session, arguments);
    Batch batch(session, arguments);
    FileNames names(arguments.files);
    names.keep();
    batch.checkOutputs(names);
    return Run(session, arguments, batch).all(names);
}

} // namespace klunortredi::cli
