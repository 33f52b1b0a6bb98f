#include "verbs/verbs.hpp"

#include "additions.hpp"
#include "certificates.hpp"
#include "chain_files.hpp"
#include "chain_material.hpp"
#include "console.hpp"
#include "failure.hpp"
#include "orvik/plugin/base64.hpp"
#include "printable.hpp"
#include "service_program.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;

/// What was wrong with one CRL of several, or of a file with certificates.
std::string titleOf(const CertsArguments& arguments, std::size_t number, std::size_t count) {
    return "cannot add " + arguments.which + (count > 1 ? ": CRL " + std::to_string(number) : "");
}

/// The CryptoAPI has no entry point that puts a CRL into a store: the embedded service's own program does it.
Json addRevocationList(const CertsArguments& arguments, const std::string& der, const std::string& what) {
    const SharedOctets octets(der);
    const Json document =
        runServiceProgram({"crl", "add", "--json", "--store", arguments.store, "--", octets.path()}, what);
    return {{"added_crl", document.at("added")}, {"verified", document.value("verified", true)}};
}

/// Adds them in their order, up to the first that fails.
Json addRevocationLists(const CertsArguments& arguments, const std::vector<std::string>& crls) {
    Json list = Json::array();
    for (std::size_t i = 0; i < crls.size(); ++i) {
        list.push_back(addRevocationList(arguments, crls[i], titleOf(arguments, i + 1, crls.size())));
    }
    return list;
}

void print(std::ostream& out, const Json& crl, const std::string& store) {
    if (crl["added_crl"].is_null()) {
        out << "store " << store << " has this CRL, or a newer one, already\n";
    } else {
        out << "added the CRL of " << printableName(crl["added_crl"].value("issuer", std::string{})) << " to store "
            << store << '\n';
    }
    if (!crl["verified"].get<bool>()) {
        out << "  its signature is not verified: add its issuer's certificate first\n";
    }
}

constexpr const char* otherServices = "the CryptoAPI service of this machine takes no CRL from this command";

ExitCode addOnlyRevocationLists(Session& session, const CertsArguments& arguments, const ChainFiles& files) {
    if (!usesEmbeddedService()) {
        throw Failure(ExitCode::service, "cannot add " + arguments.which, otherServices,
                      "add it with the service's own tools, or bring it with --with FILE when judging a chain");
    }
    const Json crls = addRevocationLists(arguments, files.crls);
    Json document = crls.size() == 1 ? crls.front() : Json{{"crls", crls}};
    document["store"] = arguments.store;
    session.console.result(document, [&](std::ostream& out) {
        for (const Json& crl : crls) {
            print(out, crl, arguments.store);
        }
    });
    return ExitCode::done;
}

/// The words that hand a password's source on.
void addSource(std::vector<std::string>& words, const PinOptions& password) {
    if (!password.file.empty()) {
        words.insert(words.end(), {"--password-file", password.file});
    }
    if (!password.environment.empty()) {
        words.insert(words.end(), {"--password-env", password.environment});
    }
    if (password.descriptor) {
        words.insert(words.end(), {"--password-fd", std::to_string(*password.descriptor)});
    }
}

/// The certificates of a PKCS#12 file; its keys stay where they are.
void readKeyFile(const Session& session, const CertsArguments& arguments, ChainFiles& files) {
    const std::string what = "cannot add " + arguments.which;
    if (arguments.which == "-") {
        throw Failure(ExitCode::usage, what, "a PKCS#12 file is not read from standard input", "name the file");
    }
    std::vector<std::string> words{"container", "certificates", "--json"};
    addSource(words, arguments.password);
    words.insert(words.end(), {"--", arguments.which});
    const Json document = runServiceProgram(words, what);
    for (const auto& certificate : document.at("certificates")) {
        files.certificates.push_back(orvik::plugin::base64::decode(certificate.get<std::string>()));
    }
    if (document.value("keys", 0) > 0) {
        session.console.note("klunortredi: the private keys in " + printableName(arguments.which) +
                             " were not added: 'klunortredi-csp container import' takes them");
    }
}

ChainFiles read(const Session& session, const CertsArguments& arguments) {
    ChainFiles files;
    try {
        readChainFile(arguments.which, files);
    } catch (const KeyFileFailure&) {
        readKeyFile(session, arguments, files);
    }
    return files;
}

} // namespace

ExitCode addCertificate(Session& session, const CertsArguments& arguments) {
    refuseProvider(arguments, "add");
    const ChainFiles files = read(session, arguments);
    if (files.certificates.empty()) {
        return addOnlyRevocationLists(session, arguments, files);
    }
    // Any name is a store's; that it was empty is how a misspelt one shows.
    const bool first = storeCertificates(arguments.store).empty();
    std::vector<CertificatePtr> certificates(files.certificates.size());
    std::ranges::transform(files.certificates, certificates.begin(), certificateFromDer);
    const auto additions = addToStore(certificates, arguments.store, "cannot add " + arguments.which);
    const bool takesCrls = usesEmbeddedService();
    const Json crls = takesCrls ? addRevocationLists(arguments, files.crls) : Json::array();
    const Json document{{"certificates", toJson(additions)},
                        {"store", arguments.store},
                        {"crls", crls},
                        {"crls_left_out", files.crls.size() - crls.size()}};
    session.console.result(document, [&](std::ostream& out) {
        for (const Addition& addition : additions) {
            print(out, addition, arguments.store, first && &addition == &additions.front());
        }
        for (const Json& crl : crls) {
            print(out, crl, arguments.store);
        }
    });
    if (files.crls.size() != crls.size()) {
        session.console.note("klunortredi: the CRLs in " + printableName(arguments.which) +
                             " were not added: " + otherServices);
    }
    return ExitCode::done;
}

} // namespace klunortredi::cli
