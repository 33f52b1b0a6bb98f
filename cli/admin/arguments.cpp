#include "arguments.hpp"

#include "failure.hpp"
#include "orvik/plugin/version_registry.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

namespace klunortredi::admin {

namespace {

using cli::ExitCode;

/// Builds the verbs; each remembers how to run what it was given.
class Grammar {
public:
    Grammar(CLI::App& app, Command& command) : app_(app), command_(command) {
        addOptions();
        CLI::App* container = app_.add_subcommand("container", "Key containers")->fallthrough()->require_subcommand(1);
        addKeyFiles(*container);
        addCare(*container);
        addRevocation(
            *app_.add_subcommand("crl", "Certificate revocation lists")->fallthrough()->require_subcommand(1));
    }

private:
    template <class Arguments>
    using Run = ExitCode (*)(Session&, const Arguments&);

    void addOptions() {
        AdminOptions& options = command_.options;
        app_.add_flag("--json", options.json, "Print one JSON document");
        app_.add_flag("--quiet,-q", options.quiet, "No remarks");
        app_.add_flag("--force", options.force, "Replace existing output files");
        app_.add_flag("--pem", options.pem, "Write PEM instead of DER");
        addSecret("--pin", "the PIN", options.pin);
        addSecret("--new-pin", "the new PIN (change-pin)", options.newPin);
        addSecret("--password", "the password of a key file (import, export)", options.password);
    }

    void addSecret(const std::string& stem, const std::string& what, cli::PinOptions& source) {
        app_.add_option(stem + "-file", source.file, "Read " + what + " from the first line of a file")
            ->type_name("FILE");
        app_.add_option(stem + "-env", source.environment, "Read " + what + " from an environment variable")
            ->type_name("NAME");
        app_.add_option_function<int>(
                stem + "-fd", [&source](int fd) { source.descriptor = fd; },
                "Read " + what + " from an open descriptor")
            ->type_name("N");
    }

    /// A verb whose arguments live as long as the command.
    template <class Arguments>
    CLI::App* add(CLI::App& parent, const char* name, const char* help, const std::shared_ptr<Arguments>& arguments,
                  Run<Arguments> run) {
        CLI::App* verb = parent.add_subcommand(name, help)->fallthrough();
        const std::string words = parent.get_name() + ' ' + name;
        verb->final_callback([this, words, arguments, run] {
            command_.verb = words;
            command_.run = [arguments, run](Session& session) { return run(session, *arguments); };
        });
        return verb;
    }

    void addKeyFiles(CLI::App& container) {
        auto imported = std::make_shared<ImportArguments>();
        CLI::App* verb = add(container, "import", "Import a private key into a new container", imported, importKey);
        verb->add_option("FILE", imported->files.file, "PKCS#12 file, or a private key (then with CERT)")->required();
        verb->add_option("CERT", imported->files.certificate, "The private key's certificate");
        verb->add_option("--name", imported->name, "Name of the new container (default: the key's, else the file's)");
        verb->add_option("--key", imported->files.key, "Which key of the file: its friendly name, or its number");
        verb->add_flag("--exportable", imported->exportable, "Let the private key leave its container again");

        auto shown = std::make_shared<CertificatesArguments>();
        add(container, "certificates", "Print the certificates of a PKCS#12 file as PEM", shown, listCertificates)
            ->add_option("FILE", shown->file, "PKCS#12 file")
            ->required();

        auto exported = std::make_shared<ExportArguments>();
        verb = add(container, "export", "Write an exportable key with its certificate to a PKCS#12 file", exported,
                   exportKey);
        addContainer(*verb, *exported)->required();
        verb->add_option("--out", exported->out, "Output file (default: the container's name and .p12)");
    }

    void addCare(CLI::App& container) {
        const auto verb = [&](const char* name, const char* help, Run<ContainerArguments> run) {
            auto arguments = std::make_shared<ContainerArguments>();
            return addContainer(*add(container, name, help, arguments, run), *arguments);
        };
        verb("change-pin", "Change a container's PIN", changePin)->required();
        verb("check", "Look for damage in a container, or in all", check);
        verb("unlock", "Give a locked container its PIN tries back", unlockTries)->required();

        auto listed = std::make_shared<ContainerArguments>();
        add(container, "list", "List the containers", listed, list)
            ->add_option("--provider", listed->provider, "Only this provider's (name part or type)");
    }

    void addRevocation(CLI::App& crl) {
        auto crls = std::make_shared<CrlArguments>();
        crl.add_option("--store", crls->store, "Certificate store: ca, root, my ...")->capture_default_str();
        add(crl, "add", "Put a CRL into a store, in the place of the older one", crls, addCrl)
            ->add_option("FILE", crls->which, "CRL, DER or PEM")
            ->required();
        add(crl, "list", "List the CRLs of a store", crls, listCrls);
        add(crl, "delete", "Delete a CRL from a store", crls, deleteCrl)
            ->add_option("WHICH", crls->which,
                         "Its file as 'crl list' shows it (or how that begins), or a part of the issuer")
            ->required();
    }

    static CLI::Option* addContainer(CLI::App& verb, ContainerArguments& arguments) {
        verb.add_option("--provider", arguments.provider, "The container's provider (name part or type)");
        return verb.add_option("NAME", arguments.name, "The container");
    }

    CLI::App& app_;
    Command& command_;
};

bool asksForJson(int argc, char** argv) {
    return std::any_of(argv, argv + argc, [](const char* argument) { return std::string_view(argument) == "--json"; });
}

} // namespace

Command parse(int argc, char** argv) {
    Command command;
    CLI::App app("Takes care of the embedded service's key containers and stores.", programName);
    app.set_version_flag("--version", std::string(programName) + ' ' + orvik::plugin::VersionRegistry::product());
    app.require_subcommand(1);
    app.get_formatter()->column_width(34);
    const Grammar grammar(app, command);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        app.exit(e);
    } catch (const CLI::ParseError& e) {
        command.options.json = asksForJson(argc, argv);
        command.exit = ExitCode::usage;
        const cli::Console console(command.options, programName);
        console.failure(cli::Failure(ExitCode::usage, "wrong usage", e.what(), "see 'klunortredi-csp --help'"));
    }
    return command;
}

} // namespace klunortredi::admin
