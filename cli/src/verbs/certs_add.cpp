#include "verbs/verbs.hpp"

#include "additions.hpp"
#include "certificates.hpp"
#include "chain_files.hpp"
#include "chain_material.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "printable.hpp"
#include "process.hpp"

#include <boost/filesystem/operations.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;

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

} // namespace

ExitCode addCertificate(Session& session, const CertsArguments& arguments) {
    refuseProvider(arguments, "add");
    ChainFiles files;
    readChainFile(arguments.which, files);
    if (files.certificates.empty()) {
        return addRevocationList(session, arguments, files.crls.size());
    }
    // Any name is a store's; that it was empty is how a misspelt one shows.
    const bool first = storeCertificates(arguments.store).empty();
    std::vector<CertificatePtr> certificates(files.certificates.size());
    std::ranges::transform(files.certificates, certificates.begin(), certificateFromDer);
    const auto additions = addToStore(certificates, arguments.store, "cannot add " + arguments.which);
    const Json document{
        {"certificates", toJson(additions)}, {"store", arguments.store}, {"crls_left_out", files.crls.size()}};
    session.console.result(document, [&](std::ostream& out) {
        for (const Addition& addition : additions) {
            print(out, addition, arguments.store, first && &addition == &additions.front());
        }
    });
    if (!files.crls.empty()) {
        session.console.note("klunortredi: the CRLs in " + printableName(arguments.which) +
                             " were not added: add each from a file of its own");
    }
    return ExitCode::done;
}

} // namespace klunortredi::cli
