#include "containers.hpp"
#include "core/error.hpp"
#include "failure.hpp"
#include "link.hpp"
#include "openssl_setup.hpp"
#include "printable.hpp"
#include "refusal.hpp"
#include "text/unicode.hpp"
#include "verbs/verbs.hpp"

#include <nlohmann/json.hpp>

#include <filesystem>

namespace klunortredi::admin {

namespace {

using cli::ExitCode;
using cli::Failure;
using csp::ContainerId;

std::optional<ContainerId> idOf(const std::string& name, DWORD providerType) {
    const auto wide = csp::wideFromUtf8(name);
    try {
        if (wide) {
            ContainerId id = csp::parseContainerName(*wide, providerType);
            csp::checkNewName(id);
            return id;
        }
    } catch (const csp::ApiError&) { // told by the caller
    }
    return std::nullopt;
}

/// The name that was asked for; else the first of the file's own that a container can have.
ContainerId chooseName(const ImportArguments& arguments, const Identity& identity) {
    const DWORD type = identity.key.provider->type;
    const auto candidates =
        arguments.name.empty()
            ? std::vector{identity.friendlyName, std::filesystem::path(arguments.files.file).stem().string()}
            : std::vector{arguments.name};
    for (const std::string& name : candidates) {
        if (auto id = idOf(name, type)) {
            return *std::move(id);
        }
    }
    throw Failure(arguments.name.empty() ? ExitCode::usage : ExitCode::service,
                  "cannot name the container '" + candidates.back() + "'", "no container can have that name",
                  "choose one with --name");
}

/// The container stays only with its certificate linked: a failed import is repeated under the same name.
void linkOrUndo(csp::NewContainer& made, const ContainerId& id, const csp::Bytes& certificate) {
    try {
        linkInStoreMy(certificate, id);
    } catch (...) {
        try {
            made.undo();                 // what another process put there since stays
        } catch (const csp::ApiError&) { // what made the import fail is the one to tell
        }
        throw;
    }
}

/// Makes the container, whole or not at all.
void store(const ContainerId& id, const Identity& identity, bool exportable, cli::PinSource& pin) {
    csp::NewContainer made(id);
    const csp::Secret secret = askNewPin(pin, id);
    made.container().addKey(capi::AT_KEYEXCHANGE, identity.key.key.get(), exportable, csp::view(secret));
    if (identity.certificate) {
        made.container().setCertificate(capi::AT_KEYEXCHANGE, *identity.certificate);
    }
    made.commit();
    if (identity.certificate) {
        linkOrUndo(made, id, *identity.certificate);
    }
}

} // namespace

ExitCode importKey(Session& session, const ImportArguments& arguments) {
    const OpensslSetup setup;
    cli::PinSource password(session.options.password, "password", "--password");
    cli::PinSource pin(session.options.pin);
    const KeyFiles files = splitPair(arguments.files);
    const Identity identity = readIdentity(files, password);
    const ContainerId id = chooseName(arguments, identity);
    try {
        store(id, identity, arguments.exportable, pin);
    } catch (const csp::ApiError& e) {
        throw refusal("cannot import into container " + id.name, e);
    }
    // All is done: what is reported is what was written, and nothing is read that could fail.
    const std::string thumbprint = identity.certificate ? certificateThumbprint(*identity.certificate) : "";
    nlohmann::ordered_json document = describe(id);
    document.update({{"exportable", arguments.exportable},
                     {"certificate", thumbprint},
                     {"store", identity.certificate ? "my" : ""}});
    session.console.result(document, [&](std::ostream& out) {
        out << "imported into container " << cli::printable(id.name) << "\n  of " << providerOf(id).name << '\n';
        if (identity.certificate) {
            out << "  certificate " << thumbprint << ", also in store my\n";
        }
    });
    if (!identity.certificate) {
        session.console.note("The file holds no certificate: add it with 'klunortredi install CERT --container " +
                             id.name + "'.");
    }
    if (identity.otherCertificates > 0) {
        session.console.note(std::to_string(identity.otherCertificates) +
                             " other certificate(s) in the file were left out; 'klunortredi certs add' takes them.");
    }
    return ExitCode::done;
}

} // namespace klunortredi::admin
