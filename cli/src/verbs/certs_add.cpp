#include "verbs/verbs.hpp"

#include "capi/constants.hpp"
#include "certificates.hpp"
#include "chain_files.hpp"
#include "chain_material.hpp"
#include "console.hpp"
#include "crypto/wincrypt/certificate_store.hpp"
#include "failure.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "printable.hpp"
#include "process.hpp"

#include <boost/filesystem/operations.hpp>
#include <nlohmann/json.hpp>

#include <utility>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
using orvik::plugin::crypto::ICertificate;
using orvik::plugin::crypto::ICertificateStore;
using orvik::plugin::wincrypt::RegistryCertificateStore;

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

/// One certificate of the file and what the store has of it.
struct Addition {
    CertificatePtr certificate;
    CertificatePtr installed; ///< of the same issuer and serial number; may be null

    [[nodiscard]] bool isThere() const { return installed && installed->raw() == certificate->raw(); }
    [[nodiscard]] bool replaces() const { return installed && !isThere(); }
};

/// Throws Failure when one of them may not be added: then none is.
std::vector<Addition> additionsOf(const std::vector<std::string>& encodings, const CertsArguments& arguments,
                                  const RegistryCertificateStore& store) {
    std::vector<Addition> additions;
    for (const std::string& der : encodings) {
        const CertificatePtr certificate = certificateFromDer(der);
        additions.push_back({certificate, store.findCertificate(*certificate)});
        if (additions.back().replaces()) {
            checkReplacement(*additions.back().installed, *certificate, arguments);
        }
    }
    return additions;
}

Json documentOf(const Addition& addition) {
    Json json = toJson(*addition.certificate);
    json["outcome"] = addition.isThere() ? "already_there" : addition.replaces() ? "replaced" : "added";
    json["replaced"] = addition.replaces() ? toJson(*addition.installed) : Json();
    return json;
}

void print(std::ostream& out, const Addition& addition, const std::string& store, bool wasEmpty) {
    if (addition.isThere()) {
        out << "store " << store << " has " << titleOf(*addition.certificate) << " already\n";
        return;
    }
    out << "added " << titleOf(*addition.certificate) << " to store " << store << (wasEmpty ? ", which was empty" : "")
        << '\n';
    if (addition.replaces()) {
        out << "  in place of the certificate of the same issuer and serial number, thumbprint "
            << thumbprintOf(*addition.installed) << '\n';
    }
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
    RegistryCertificateStore store(arguments.store, ICertificateStore::system);
    const std::vector<Addition> additions = additionsOf(files.certificates, arguments, store);
    Json list = Json::array();
    for (const Addition& addition : additions) {
        if (!addition.isThere()) { // adding it again would drop its link to a key
            store.addCertificate(*addition.certificate);
        }
        list.push_back(documentOf(addition));
    }
    const Json document{{"certificates", list}, {"store", arguments.store}, {"crls_left_out", files.crls.size()}};
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
