#include "verbs/verbs.hpp"

#include "certificates.hpp"
#include "console.hpp"
#include "crypto/wincrypt/certificate_store.hpp"
#include "failure.hpp"
#include "installed.hpp"
#include "options.hpp"
#include "output_file.hpp"
#include "pem.hpp"

#include <nlohmann/json.hpp>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
using orvik::plugin::crypto::ICertificate;
using orvik::plugin::crypto::ICertificateStore;
using orvik::plugin::wincrypt::RegistryCertificateStore;

std::string placeOf(const CertsArguments& arguments) {
    return arguments.provider.empty() ? "store " + arguments.store : "the containers of " + arguments.provider;
}

std::vector<CertificatePtr> chosen(const CertsArguments& arguments) {
    return arguments.provider.empty() ? storeCertificates(arguments.store)
                                      : chooseProvider(arguments.provider)->certificates();
}

} // namespace

void refuseProvider(const CertsArguments& arguments, const char* verb) {
    if (!arguments.provider.empty()) {
        throw Failure(ExitCode::usage, std::string("cannot use --provider with certs ") + verb,
                      "it works on a store, not on the certificates in containers", "name the store with --store");
    }
}

ExitCode listCertificates(Session& session, const CertsArguments& arguments) {
    const auto found = chosen(arguments);
    Json list = Json::array();
    for (const auto& certificate : found) {
        list.push_back(toJson(*certificate));
    }
    session.console.result({{"certificates", list}}, [&](std::ostream& out) {
        for (const auto& certificate : found) {
            print(out, *certificate);
        }
        if (found.empty()) {
            out << "no certificates in " << placeOf(arguments) << '\n';
        }
    });
    return ExitCode::done;
}

ExitCode showCertificate(Session& session, const CertsArguments& arguments) {
    const auto certificate = findCertificate(chosen(arguments), arguments.which, placeOf(arguments));
    session.console.result({{"certificates", Json::array({toJson(*certificate)})}},
                           [&](std::ostream& out) { print(out, *certificate); });
    return ExitCode::done;
}

ExitCode deleteCertificate(Session& session, const CertsArguments& arguments) {
    refuseProvider(arguments, "delete");
    const auto certificate = findCertificate(storeCertificates(arguments.store), arguments.which, placeOf(arguments));
    RegistryCertificateStore(arguments.store, ICertificateStore::system).deleteCertificate(*certificate);
    session.console.result({{"deleted", toJson(*certificate)}, {"store", arguments.store}}, [&](std::ostream& out) {
        out << "deleted " << titleOf(*certificate) << " from store " << arguments.store << '\n';
    });
    return ExitCode::done;
}

ExitCode exportCertificate(Session& session, const CertsArguments& arguments) {
    const auto certificate = findCertificate(chosen(arguments), arguments.which, placeOf(arguments));
    OutputFile out(arguments.out, session.options.force);
    const std::string der = certificate->raw();
    out.write(session.options.pem ? toPem(der, "CERTIFICATE") : der);
    out.commit();
    if (out.path() == "-") {
        return ExitCode::done;
    }
    session.console.result({{"exported", toJson(*certificate)}, {"output", out.path()}}, [&](std::ostream& stream) {
        stream << "wrote " << titleOf(*certificate) << " to " << out.path() << '\n';
    });
    return ExitCode::done;
}

} // namespace klunortredi::cli
