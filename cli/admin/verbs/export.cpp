#include "containers.hpp"
#include "core/error.hpp"
#include "failure.hpp"
#include "openssl_setup.hpp"
#include "output_file.hpp"
#include "pem.hpp"
#include "pfx_writer.hpp"
#include "refusal.hpp"
#include "secrets.hpp"
#include "verbs/verbs.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace klunortredi::admin {

namespace {

using cli::ExitCode;
using cli::Failure;

constexpr const char* pemLabel = "PKCS12";

/// The exchange key where there is one: it is what certificates are installed for.
const csp::KeyEntry& chooseKey(const csp::Container& container, const std::string& what) {
    const auto& keys = container.keys();
    const auto exchange = std::ranges::find(keys, capi::AT_KEYEXCHANGE, &csp::KeyEntry::spec);
    if (keys.empty()) {
        throw refusal(what, csp::ApiError(capi::NTE_KEYSET_ENTRY_BAD));
    }
    const csp::KeyEntry& key = exchange == keys.end() ? keys.front() : *exchange;
    if (!key.exportable) {
        throw Failure(ExitCode::service, what, "its key was not made exportable",
                      "keys are with 'klunortredi request --exportable' or 'container import --exportable'",
                      capi::NTE_PERM);
    }
    return key;
}

} // namespace

ExitCode exportKey(Session& session, const ExportArguments& arguments) {
    const OpensslSetup setup;
    const csp::ContainerId id = findContainer(arguments.name, arguments.provider);
    const std::string what = "cannot export container " + id.name;
    csp::Container container = csp::Container::open(id);
    const csp::KeyEntry key = chooseKey(container, what);
    cli::OutputFile file(arguments.out.empty() ? id.name + ".p12" : arguments.out, session.options.force);
    if (file.path() == "-" && session.console.json()) {
        throw Failure(ExitCode::usage, what, "--json and a file cannot share standard output");
    }
    cli::PinSource pin(session.options.pin);
    const csp::UnlockedKeys keys = unlock(container, pin, what);
    chooseKey(container, what); // the attributes were read again, and compared with what the key file is bound to
    cli::PinSource password(session.options.password, "password", "--password");
    const csp::Secret secret = takeSecret(password.askNew("New password of " + file.path() + ": "));
    const std::string thumbprint = certificateThumbprint(container); // read before the file is there
    const csp::Bytes der = writePfx({keys.at(key.spec).get(), container.certificate(key.spec), id.name}, secret);
    const std::string octets(der.begin(), der.end());
    file.write(session.options.pem ? cli::toPem(octets, pemLabel) : octets);
    file.commit();
    if (file.path() == "-") {
        return ExitCode::done;
    }
    nlohmann::ordered_json document = describe(id);
    document.update({{"output", file.path()}, {"certificate", thumbprint}});
    session.console.result(
        document, [&](std::ostream& out) { out << "exported container " << id.name << " to " << file.path() << '\n'; });
    return ExitCode::done;
}

} // namespace klunortredi::admin
