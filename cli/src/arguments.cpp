#include "arguments.hpp"

#include "console.hpp"
#include "failure.hpp"
#include "orvik/plugin/version_registry.hpp"
#include "printable.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

namespace klunortredi::cli {

namespace {

/// A whole number; its upper bound is the verb's to judge.
std::string octetCount(const std::string& text) {
    return text.empty() || text.find_first_not_of("0123456789") != std::string::npos
               ? "'" + text + "' is no number of octets"
               : std::string{};
}

/// For values that mean "not given" when they are empty: an empty variable of a script must not take a check away.
std::string notEmpty(const std::string& text) {
    return text.empty() ? "its value is empty" : std::string{};
}

/// For texts that go into certificates or name containers. Names of files may be of any octets.
std::string utf8Text(const std::string& text) {
    return isUtf8(text) ? std::string{} : "its value is not UTF-8";
}

/// Builds the verbs; each remembers how to run what it was given.
class Grammar {
public:
    /// With a verb as the first word nothing else is needed: no other can follow it.
    Grammar(CLI::App& app, Command& command, std::string_view firstWord) : app_(app), command_(command) {
        const auto named = [&](const Verb& verb) { return verb.name == firstWord; };
        const bool one = std::any_of(std::begin(verbs), std::end(verbs), named);
        addOptions();
        for (const Verb& verb : verbs) {
            if (!one || named(verb)) {
                (this->*verb.add)();
            }
        }
    }

private:
    struct Verb {
        std::string_view name;
        void (Grammar::*add)();
    };
    static const std::array<Verb, 16> verbs; ///< in the order in which --help lists them

    template <class Arguments>
    using Run = ExitCode (*)(Session&, const Arguments&);

    void addOptions() {
        Options& options = command_.options;
        app_.add_flag("--json", options.json, "Print one JSON document");
        app_.add_flag("--quiet,-q", options.quiet, "No progress, no remarks");
        app_.add_flag("--force", options.force, "Replace existing output files");
        app_.add_flag("--pem", options.pem, "Write PEM instead of DER");
        app_.add_flag("-v", options.verbosity, "Log more on standard error (-v, -vv, -vvv)");
        app_.add_option("--service", options.service, "CryptoAPI service library to use")->type_name("PATH");
        app_.add_option("--pin-file", options.pin.file, "Read the PIN from the first line of a file")
            ->type_name("FILE");
        app_.add_option("--pin-env", options.pin.environment, "Read the PIN from an environment variable")
            ->type_name("NAME");
        app_.add_option_function<int>(
                "--pin-fd", [&options](int fd) { options.pin.descriptor = fd; }, "Read the PIN from an open descriptor")
            ->type_name("N");
    }

    /// A verb whose arguments live as long as the command.
    template <class Arguments>
    CLI::App* add(CLI::App& parent, const char* name, const char* help, const std::shared_ptr<Arguments>& arguments,
                  Run<Arguments> run) {
        CLI::App* verb = parent.add_subcommand(name, help)->fallthrough();
        const std::string words = &parent == &app_ ? name : parent.get_name() + ' ' + name;
        verb->final_callback([this, verb, words, arguments, run] {
            // A verb with sub-verbs of its own runs only when none of them was named.
            if (verb->get_subcommands().empty()) {
                command_.verb = words;
                command_.run = [arguments, run](Session& session) { return run(session, *arguments); };
            }
        });
        return verb;
    }

    void addPlain(const char* name, const char* help, ExitCode (*run)(Session&)) {
        app_.add_subcommand(name, help)->fallthrough()->final_callback([this, name, run] {
            command_.verb = name;
            command_.run = run;
        });
    }

    void addInfo() { addPlain("info", "Version, service, data directory, providers", info); }

    void addProviders() { addPlain("providers", "Installed providers", providers); }

    void addContainers() {
        auto containers = std::make_shared<ContainersArguments>();
        CLI::App* verb = add(app_, "containers", "Key containers", containers, listContainers);
        verb->add_option("--provider", containers->provider, "Only this provider's");
        add(*verb, "list", "List the key containers", containers, listContainers);
        CLI::App* deleting = add(*verb, "delete", "Delete a key container", containers, deleteContainer);
        deleting->add_option("NAME", containers->name, "The container")->check(utf8Text)->required();
        deleting->add_flag("--yes", containers->yes, "Do not ask");
    }

    void addRequest() {
        auto requested = std::make_shared<RequestArguments>();
        CLI::App* verb =
            add(app_, "request", "Certificate request for a new key pair, or with --renew for one that is there",
                requested, request);
        verb->add_flag("--list", requested->list, "Show which keys can be made, and make none");
        verb->add_option("--container", requested->container, "Name of the new container; with --renew of the key's")
            ->check(utf8Text)
            ->check(notEmpty);
        verb->add_option("--template", requested->templateFile, "File with options (JSON); those given here count")
            ->type_name("FILE")
            ->check(notEmpty);
        verb->add_flag("--renew", requested->renew, "For the key in the container, named as in its certificate");
        verb->add_option("--subject", requested->subject, "Subject name")->type_name("NAME=VALUE;...")->check(utf8Text);
        verb->add_option("--provider", requested->provider, "Provider that makes the key (name part or type)");
        verb->add_option("--param-set", requested->paramSet, "Parameter set of the key")->type_name("OID");
        verb->add_option("--key-usage", requested->keyUsage,
                         "Key usages, comma-separated (default: digitalSignature,nonRepudiation)");
        verb->add_option("--eku", requested->enhancedKeyUsage, "Extended key usage")
            ->type_name("OID")
            ->allow_extra_args(false);
        verb->add_option("--policy", requested->policies, "Certificate policy")
            ->type_name("OID")
            ->allow_extra_args(false);
        verb->add_option("--dns", requested->dnsNames, "DNS name")->check(utf8Text)->allow_extra_args(false);
        verb->add_option("--email", requested->emailNames, "E-mail address")->check(utf8Text)->allow_extra_args(false);
        verb->add_option("--upn", requested->userPrincipalName, "User principal name")->check(utf8Text);
        verb->add_option("--identification", requested->identification, "How the applicant is identified")
            ->check(CLI::IsMember({"personal", "certificate", "passport", "system"}));
        verb->add_option("--key-days", requested->keyDays, "Days for which the private key is to be used")
            ->check(CLI::Range(1U, 36500U));
        verb->add_flag("--no-client-info", requested->withoutMachineInfo,
                       "Do not name this machine, its user and its system");
        verb->add_flag("--exportable", requested->exportable, "Let the private key leave its container");
        verb->add_option("--out", requested->out, "Output file (default: the container's name and .csr)");
    }

    void addInstall() {
        auto installed = std::make_shared<InstallArguments>();
        CLI::App* verb =
            add(app_, "install", "Put a certificate into its key container and into store my", installed, install);
        verb->add_option("CERT", installed->certificate, "Certificate, or bundle with its issuers (.p7b)")->required();
        verb->add_option("--container", installed->container, "The key's container (default: by the public key)")
            ->check(utf8Text);
        verb->add_option("--provider", installed->provider, "The container's provider");
    }

    void addCerts() {
        auto certs = std::make_shared<CertsArguments>();
        CLI::App* verb = add(app_, "certs", "Certificates", certs, listCertificates);
        verb->add_option("--store", certs->store, "Certificate store: my, root, ca ...")->capture_default_str();
        verb->add_option("--provider", certs->provider, "Certificates in this provider's containers instead");
        add(*verb, "list", "List certificates", certs, listCertificates)
            ->add_option("--expiring", certs->expiring, "Only those that end within so many days, or have ended")
            ->type_name("30d")
            ->check(notEmpty);
        const auto which = [&](const char* name, const char* help, Run<CertsArguments> run) {
            CLI::App* sub = add(*verb, name, help, certs, run);
            sub->add_option("WHICH", certs->which, "Thumbprint prefix, serial, or part of the subject")->required();
            return sub;
        };
        which("show", "Show one certificate", showCertificate);
        which("delete", "Delete a certificate from the store", deleteCertificate);
        which("set-name", "Give a certificate a friendly name", nameCertificate)
            ->add_option("NAME", certs->name, "The name")
            ->check(utf8Text)
            ->check(notEmpty)
            ->required();
        which("export", "Write a certificate to a file", exportCertificate)
            ->add_option("--out", certs->out, "Output file (default: standard output)");
        CLI::App* adding =
            add(*verb, "add", "Add the certificates and CRLs of a file to the store", certs, addCertificate);
        adding->add_option("FILE", certs->which, "Certificate, bundle (.p7b), CRL or key file (.p12)")->required();
        addPassword(*adding, certs->password);
    }

    /// Where the password of a key file comes from.
    static void addPassword(CLI::App& verb, PinOptions& password) {
        verb.add_option("--password-file", password.file, "Read a key file's password from the first line of a file")
            ->type_name("FILE");
        verb.add_option("--password-env", password.environment, "Read it from an environment variable")
            ->type_name("NAME");
        verb.add_option_function<int>(
                "--password-fd", [&password](int fd) { password.descriptor = fd; }, "Read it from an open descriptor")
            ->type_name("N");
    }

    void addChain() {
        auto chained = std::make_shared<ChainArguments>();
        CLI::App* verb = add(app_, "chain", "Judge a certificate's chain", chained, chain);
        verb->add_option("CERT", chained->which, "Certificate file, or which certificate of store my")->required();
        addChainOptions(*verb, chained->options);
    }

    /// How chains are judged, for every verb that judges them.
    static void addChainOptions(CLI::App& verb, ChainOptions& options) {
        verb.add_option("--at", options.at,
                        "Judge the chain at this time (RFC 3339, UTC); for verify also signing or timestamp")
            ->type_name("TIME")
            ->check(notEmpty);
        verb.add_option("--with", options.with, "More certificates and CRLs, DER, PEM or PKCS#7")
            ->type_name("FILE")
            ->check(notEmpty)
            ->allow_extra_args(false);
        verb.add_option("--anchor", options.anchors, "Trust these certificates instead of store root")
            ->type_name("FILE")
            ->check(notEmpty)
            ->allow_extra_args(false);
        verb.add_option("--usage", options.usage, "Require this extended key usage")
            ->type_name("OID|NAME")
            ->check(notEmpty);
        verb.add_flag("--require-revocation", options.requireRevocation,
                      "Do not trust a chain whose revocation status is not known");
        verb.add_flag("--offline", options.offline, "Retrieve no CRLs, status answers and issuers from the network");
    }

    /// The files that a verb works on, and how their results are written.
    void addFiles(CLI::App& verb, NamedFiles& files, const char* help) {
        verb.add_option("FILE", files.files, help);
        verb.add_option("--files-from", files.from, "Read the files' names from this list, one a line")
            ->type_name("LIST")
            ->check(notEmpty);
        verb.add_flag("-0", files.zeroEnds, "The names of the list end with a zero octet");
        verb.add_flag("--json-lines", command_.options.jsonLines, "Print one JSON document a line, as files are done");
    }

    static void addSigner(CLI::App& verb, SignerArguments& signer) {
        verb.add_option("--cert", signer.certificate,
                        "The signer's certificate in store my: thumbprint prefix, serial, or part of the subject")
            ->type_name("WHICH")
            ->required();
        verb.add_flag("--by-key-id", signer.byKeyIdentifier,
                      "Name the signer by the certificate's subject key identifier");
        verb.add_flag("--pss", signer.pss, "Sign with RSASSA-PSS (RSA keys)");
        verb.add_flag("--strict", signer.strict, "Refuse a certificate that is not valid now");
        verb.add_flag("--no-signing-certificate", signer.noSigningCertificate,
                      "Do not name the certificate in what is signed");
    }

    static auto formats() { return CLI::IsMember({"attached", "detached", "xmldsig"}); }

    void addSign() {
        auto signing = std::make_shared<SignArguments>();
        CLI::App* verb = add(app_, "sign", "Sign files", signing, sign);
        addFiles(*verb, signing->files, "Files to sign");
        addSigner(*verb, signing->signer);
        verb->add_option("--format", signing->format, "Signature format")->check(formats())->capture_default_str();
        verb->add_option("--attribute", signing->attributes, "Signed attribute")
            ->type_name("OID=TYPE:VALUE")
            ->check(utf8Text)
            ->allow_extra_args(false);
        verb->add_option("--out", signing->out, "Output file");
        verb->add_option("--out-dir", signing->outDir, "Folder for the signatures");
        verb->add_flag("--include-chain", signing->includeChain,
                       "Put the issuers' certificates into the signature, without the root");
        verb->add_flag("--keep-going", signing->keepGoing, "Go on with the next file after a failure");
        verb->add_flag("--skip-existing", signing->skipExisting, "Leave files alone whose signature is there");
        verb->add_option("--timestamp", signing->timestamps,
                         "Add a time-stamp of this authority; several are asked in turn")
            ->type_name("URL")
            ->check(notEmpty)
            ->allow_extra_args(false);
    }

    void addTimestamp() {
        auto stamping = std::make_shared<TimestampArguments>();
        CLI::App* verb = add(app_, "timestamp", "Put a time-stamp on a signature", stamping, timestamp);
        verb->add_option("SIG", stamping->file, "The signature")->required();
        verb->add_option("--url", stamping->urls, "A time-stamp authority; several are asked in turn")
            ->type_name("URL")
            ->check(notEmpty)
            ->allow_extra_args(false)
            ->required();
        verb->add_option("--out", stamping->out, "Output file (with --force the signature itself is replaced)")
            ->check(notEmpty);
    }

    void addCosign() {
        auto cosigning = std::make_shared<CosignArguments>();
        CLI::App* verb = add(app_, "cosign", "Add a signer to a CMS message", cosigning, cosign);
        verb->add_option("SIG", cosigning->file, "The message")->required()->check(notEmpty);
        addSigner(*verb, cosigning->signer);
        verb->add_option("--content", cosigning->content, "Content of a detached message")->check(notEmpty);
        verb->add_option("--out", cosigning->out, "Output file; without it the message itself is replaced")
            ->check(notEmpty);
    }

    void addVerify() {
        auto verifying = std::make_shared<VerifyArguments>();
        CLI::App* verb = add(app_, "verify", "Check signatures", verifying, verify);
        addFiles(*verb, verifying->files, "The signatures");
        verb->add_option("--content", verifying->content, "Content of a detached signature")->check(notEmpty);
        verb->add_option("--format", verifying->format, "Signature format (default: recognised)")->check(formats());
        verb->add_option("--signer-cert", verifying->signerCertificate,
                         "The signer's certificate, for a signature that carries none; it decides")
            ->check(notEmpty);
        verb->add_option("--extract", verifying->extract, "Write the signed content to this file, once it is valid")
            ->check(notEmpty);
        verb->add_flag("--allow-partial", verifying->allowPartial,
                       "Accept signatures over parts of an XML document; the parts are listed");
        verb->add_option("--json-out", verifying->jsonOut, "Write the JSON document to this file")->check(notEmpty);
        verb->add_option("--require", verifying->require,
                         "Which signers must be valid: all, any, a number, or thumbprints (default: all)")
            ->type_name("WHICH")
            ->delimiter(',')
            ->allow_extra_args(false);
        verb->add_flag("--strict", verifying->strict, "Refuse weak algorithms and keys");
        verb->add_flag("--chain", verifying->chain, "Also judge the signers' chains");
        addChainOptions(*verb, verifying->chainOptions);
    }

    void addEncrypt() {
        auto encrypting = std::make_shared<EncryptArguments>();
        CLI::App* verb = add(app_, "encrypt", "Encrypt a file for recipients", encrypting, encrypt);
        verb->add_option("FILE", encrypting->file, "The file")->required();
        verb->add_option("--to", encrypting->to,
                         "A recipient's certificate: a file, or thumbprint prefix, serial, or part of the subject")
            ->type_name("CERT")
            ->required()
            ->check(notEmpty)
            ->allow_extra_args(false);
        verb->add_option("--cipher", encrypting->cipher, "Content cipher (default: by the recipients' keys)")
            ->type_name("NAME")
            ->check(notEmpty);
        verb->add_option("--out", encrypting->out, "Output file (default: FILE and .p7m)")->check(notEmpty);
        verb->add_flag("--any-certificate", encrypting->anyCertificate,
                       "Also for certificates that are expired or not for encryption");
    }

    void addDecrypt() {
        auto decrypting = std::make_shared<DecryptArguments>();
        CLI::App* verb = add(app_, "decrypt", "Decrypt a file", decrypting, decrypt);
        verb->add_option("FILE", decrypting->file, "The encrypted message")->required();
        verb->add_option("--cert", decrypting->certificate,
                         "The recipient's certificate in store my (default: the one that the message is for)")
            ->type_name("WHICH")
            ->check(notEmpty);
        verb->add_option("--out", decrypting->out, "Output file (default: FILE without .p7m)")->check(notEmpty);
    }

    void addHash() {
        auto hashing = std::make_shared<HashArguments>();
        CLI::App* verb = add(app_, "hash", "Hash a file", hashing, hash);
        verb->add_option("FILE", hashing->file, "The file")->required();
        verb->add_option("--algorithm", hashing->algorithm, "OID or name")->capture_default_str();
    }

    void addRandom() {
        auto randomness = std::make_shared<RandomArguments>();
        CLI::App* verb = add(app_, "random", "Random octets", randomness, random);
        verb->add_option("N", randomness->count, "How many")->check(octetCount)->required();
        CLI::Option* hex = verb->add_flag("--hex", randomness->hex, "As hexadecimal text");
        verb->add_flag("--base64", randomness->base64, "As Base64 text")->excludes(hex);
    }

    void addDemo() {
        auto touring = std::make_shared<DemoArguments>();
        CLI::App* verb = add(app_, "demo", "The tour: key, certificate, signatures, checks", touring, demo);
        verb->add_option("--timestamp", touring->authority, "A time-stamp authority, for a time-stamp in the tour")
            ->type_name("URL")
            ->check(notEmpty);
    }

    CLI::App& app_;
    Command& command_;
};

constexpr std::array<Grammar::Verb, 16> Grammar::verbs = {{
    {"info", &Grammar::addInfo},
    {"providers", &Grammar::addProviders},
    {"containers", &Grammar::addContainers},
    {"request", &Grammar::addRequest},
    {"install", &Grammar::addInstall},
    {"certs", &Grammar::addCerts},
    {"chain", &Grammar::addChain},
    {"sign", &Grammar::addSign},
    {"timestamp", &Grammar::addTimestamp},
    {"cosign", &Grammar::addCosign},
    {"verify", &Grammar::addVerify},
    {"encrypt", &Grammar::addEncrypt},
    {"decrypt", &Grammar::addDecrypt},
    {"hash", &Grammar::addHash},
    {"random", &Grammar::addRandom},
    {"demo", &Grammar::addDemo},
}};

bool asksFor(std::string_view option, int argc, char** argv) {
    return std::any_of(argv, argv + argc, [&](const char* argument) { return argument == option; });
}

/// What is wrong with the words, and where the verb that they named tells how to use it.
Failure misuse(const CLI::App& app, const CLI::ParseError& e) {
    std::string named = app.get_name();
    for (auto verbs = app.get_subcommands(); !verbs.empty(); verbs = verbs.front()->get_subcommands()) {
        named += " " + verbs.front()->get_name();
    }
    const auto unknown = app.remaining();
    const bool noVerb = app.get_subcommands().empty() && !unknown.empty();
    return {ExitCode::usage, "wrong usage", noVerb ? "there is no verb '" + unknown.front() + "'" : e.what(),
            "see '" + named + " --help'"};
}

} // namespace

Command parse(int argc, char** argv) {
    Command command;
    CLI::App app("Signs and checks documents with the CryptoAPI service of this machine.", "klunortredi");
    app.set_version_flag("--version", "klunortredi " + orvik::plugin::VersionRegistry::product());
    app.require_subcommand(1);
    app.get_formatter()->column_width(34);
    const Grammar grammar(app, command, argc > 1 ? argv[1] : "");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        app.exit(e);
    } catch (const CLI::ParseError& e) {
        command.options.json = asksFor("--json", argc, argv);
        command.options.jsonLines = asksFor("--json-lines", argc, argv);
        command.exit = ExitCode::usage;
        const Console console(command.options);
        console.failure(misuse(app, e));
    }
    return command;
}

} // namespace klunortredi::cli
