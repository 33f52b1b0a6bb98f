#include "verbs/verbs.hpp"

#include "capi/constants.hpp"
#include "certificates.hpp"
#include "chain_files.hpp"
#include "chain_material.hpp"
#include "console.hpp"
#include "crypto/wincrypt/certificate_store.hpp"
#include "failure.hpp"
#include "installed.hpp"
#include "options.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "output_file.hpp"
#include "pem.hpp"
#include "printable.hpp"
#include "process.hpp"
#include "text.hpp"

#include <boost/filesystem/operations.hpp>
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

/// The CryptoAPI has no entry point that puts a CRL into a store: the embedded service's own program does it.
ExitCode addRevocationList(Session& session, const CertsArguments& arguments, std::size_t count) {
    const std::string what = "cannot add " + arguments.which;
    if (count > 1) {
        throw Failure(ExitCode::input, what, "it holds " + std::to_string(count) + " CRLs", "add them one by one");
    }
    if (arguments.which == "-") {
        throw Failure(ExitCode::usage, what, "a CRL is not read from standard input", "name its file");
    }
    if (!usesEmbeddedService()) {
        throw Failure(ExitCode::service, what, "the CryptoAPI service of this machine takes no CRL from this command",
                      "add it with the service's own tools, or bring it with --with FILE when judging a chain");
    }
    boost::system::error_code ignored;
    const auto self = boost::filesystem::read_symlink("/proc/self/exe", ignored);
    const auto beside = self.parent_path() / "klunortredi-csp";
    const bool there = boost::filesystem::exists(beside, ignored);
    const ProcessResult result = runProcess({there ? beside.string() : "klunortredi-csp", "crl", "add", "--json",
                                             "--store", arguments.store, "--", arguments.which},
                                            {{"KLUNORTREDI_TRACE", ""}});
    // The document; what else there is went to standard error.
    const auto begin = result.output.find('{');
    const auto end = result.output.rfind('}');
    const Json document = begin == std::string::npos || end == std::string::npos
                              ? Json()
                              : Json::parse(result.output.substr(begin, end + 1 - begin), nullptr, false);
    if (result.exit != 0 || !document.contains("added")) {
        const bool explained = document.contains("error");
        throw Failure(result.exit > 0 ? static_cast<ExitCode>(result.exit) : ExitCode::service, what,
                      explained ? document["error"].value("message", std::string{}) : "klunortredi-csp cannot be run");
    }
    const bool verified = document.value("verified", true);
    const Json shown{{"added_crl", document["added"]}, {"verified", verified}, {"store", arguments.store}};
    session.console.result(shown, [&](std::ostream& out) {
        if (document["added"].is_null()) {
            out << "store " << arguments.store << " has this CRL, or a newer one, already\n";
        } else {
            out << "added the CRL of " << printableName(document["added"].value("issuer", std::string{}))
                << " to store " << arguments.store << '\n';
        }
        if (!verified) {
            out << "  its signature is not verified: add its issuer's certificate first\n";
        }
    });
    return ExitCode::done;
}

/// Anybody can make a certificate with the issuer and serial number of an installed one. Throws Failure (exit 4) when
/// the installed one has a private key and `added` is of another key.
void checkReplacement(const ICertificate& installed, const ICertificate& added, const CertsArguments& arguments) {
    if (!installed.container() || *installed.publicKey() == *added.publicKey()) {
        return;
    }
    throw Failure(ExitCode::service, "cannot add " + arguments.which,
                  "store " + arguments.store +
                      " has a certificate of the same issuer and serial number with its private "
                      "key, and this one is of another key",
                  "one of the two is not genuine; to replace the installed one, delete it first: thumbprint " +
                      thumbprintOf(installed),
                  capi::CRYPT_E_EXISTS);
}

} // namespace

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

ExitCode addCertificate(Session& session, const CertsArguments& arguments) {
    ChainFiles files;
    readChainFile(arguments.which, files);
    if (files.certificates.empty()) {
        return addRevocationList(session, arguments, files.crls.size());
    }
    const auto certificate = certificateFromDer(files.certificates.front());
    // Any name is a store's; that it was empty is how a misspelt one shows.
    const bool first = storeCertificates(arguments.store).empty();
    RegistryCertificateStore store(arguments.store, ICertificateStore::system);
    const CertificatePtr installed = store.findCertificate(*certificate);
    const bool there = installed && installed->raw() == certificate->raw();
    const bool replaces = installed && !there;
    if (replaces) {
        checkReplacement(*installed, *certificate, arguments);
    }
    if (!there) { // adding it again would drop its link to a key
        store.addCertificate(*certificate);
    }
    const Json document{{"added", toJson(*certificate)},
                        {"store", arguments.store},
                        {"already_there", there},
                        {"replaced", replaces ? toJson(*installed) : Json()}};
    session.console.result(document, [&](std::ostream& out) {
        if (there) {
            out << "store " << arguments.store << " has " << titleOf(*certificate) << " already\n";
            return;
        }
        out << "added " << titleOf(*certificate) << " to store " << arguments.store
            << (first ? ", which was empty" : "") << '\n';
        if (replaces) {
            out << "  in place of the certificate of the same issuer and serial number, thumbprint "
                << thumbprintOf(*installed) << '\n';
        }
    });
    return ExitCode::done;
}

ExitCode deleteCertificate(Session& session, const CertsArguments& arguments) {
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
