#include "verbs/verbs.hpp"

#include "additions.hpp"
#include "certificates.hpp"
#include "chain_files.hpp"
#include "console.hpp"
#include "crypto/wincrypt/certificate_store.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "installed.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "pin.hpp"
#include "printable.hpp"
#include "text.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
#include <vector>

namespace klunortredi::cli {

namespace {

using orvik::plugin::crypto::ICertificate;
using orvik::plugin::crypto::exception::CryptoException;

/// The certificate of a file that is for the user's own key, and where that key is.
struct Installation {
    CertificatePtr certificate;
    std::vector<CertificatePtr> issuers; ///< the others of the file that are not self-signed
    std::vector<CertificatePtr> roots;   ///< the self-signed ones
    Container container;
};

std::vector<Container> containersWithKey(const std::vector<ProviderPtr>& providers, const ICertificate& certificate) {
    const auto key = certificate.publicKey();
    std::vector<Container> found;
    for (const ProviderPtr& provider : providers) {
        if (const auto path = key ? provider->container(*key) : boost::none) {
            const std::string full = text::utf8(*path);
            found.push_back({full.substr(full.find_last_of("/\\") + 1), full, provider});
        }
    }
    return found;
}

/// Which certificate of several, or which container, by the keys. Throws Failure when that is none or not one.
void matchKeys(Installation& result, const std::vector<CertificatePtr>& certificates,
               const std::vector<ProviderPtr>& providers, const InstallArguments& arguments) {
    const std::string what = "cannot install " + arguments.certificate;
    for (const CertificatePtr& certificate : certificates) {
        std::vector<Container> containers = containersWithKey(providers, *certificate);
        if (!arguments.container.empty()) {
            std::erase_if(containers, [&](const Container& one) {
                return one.name != arguments.container && one.path != arguments.container;
            });
        }
        if (containers.empty()) {
            continue;
        }
        if (result.certificate || containers.size() > 1) {
            throw Failure(ExitCode::usage, what,
                          result.certificate ? "several of its certificates have a key in a container"
                                             : "several containers have its key",
                          "name the container with --container, or give the certificate in a file of its own");
        }
        result.certificate = certificate;
        result.container = containers.front();
    }
    if (!result.certificate) {
        throw Failure(ExitCode::no, what,
                      "no container" + (arguments.container.empty() ? "" : " " + printable(arguments.container)) +
                          " has the key of " +
                          (certificates.size() > 1 ? "one of its certificates" : "the certificate"),
                      "see 'klunortredi containers'");
    }
}

Installation installationOf(const InstallArguments& arguments) {
    ChainFiles files;
    readChainFile(arguments.certificate, files);
    if (files.certificates.empty()) {
        throw Failure(ExitCode::input, "cannot install " + arguments.certificate, "it holds no certificate");
    }
    std::vector<CertificatePtr> certificates(files.certificates.size());
    std::ranges::transform(files.certificates, certificates.begin(), certificateFromDer);
    const auto providers = arguments.provider.empty() ? installedProviders()
                                                      : std::vector<ProviderPtr>{chooseProvider(arguments.provider)};
    Installation result;
    if (certificates.size() == 1 && !arguments.container.empty()) {
        result.certificate = certificates.front(); // the library says whose key it is not
        result.container = findContainer(providers, arguments.container);
    } else {
        matchKeys(result, certificates, providers, arguments);
    }
    for (const CertificatePtr& other : certificates) {
        if (other != result.certificate) {
            (other->issuer() == other->subject() ? result.roots : result.issuers).push_back(other);
        }
    }
    return result;
}

} // namespace

ExitCode install(Session& session, const InstallArguments& arguments) {
    const Installation found = installationOf(arguments);
    const CertificatePtr& certificate = found.certificate;
    const Container& container = found.container;
    const std::wstring name = text::wide(container.name);
    const std::string shown = printable(container.name);
    const std::string what = "cannot install the certificate into container " + container.name;
    session.pin.setTriesLeft([&] { return pinTriesLeft(*container.provider, name); });
    try {
        certificate->install(*container.provider, name, session.pin.ask("PIN for container " + container.name + ": "));
    } catch (const CryptoException& e) {
        if (e.code().value() == static_cast<int>(CryptoException::Code::authorizationRefused)) {
            throw session.pin.refusal(what);
        }
        throw currentFailure(what);
    }
    orvik::plugin::wincrypt::RegistryCertificateStore my("my", orvik::plugin::crypto::ICertificateStore::system);
    my.addCertificate(*certificate);
    const auto issuers = addToStore(found.issuers, "ca", "cannot add the issuers to store ca");

    const nlohmann::ordered_json document{{"certificate", toJson(*certificate)},
                                          {"container", container.name},
                                          {"store", "my"},
                                          {"issuers", toJson(issuers)}};
    session.console.result(document, [&](std::ostream& out) {
        out << "installed " << titleOf(*certificate) << "\n  into container " << shown << " and store my\n  thumbprint "
            << thumbprintOf(*certificate) << '\n';
        for (const Addition& issuer : issuers) {
            print(out, issuer, "ca");
        }
    });
    for (const CertificatePtr& root : found.roots) {
        session.console.note("klunortredi: the root " + titleOf(*root) + " in the file was not added: to trust it, " +
                             "check its thumbprint " + thumbprintOf(*root) +
                             " and add it with 'certs add --store root'");
    }
    return ExitCode::done;
}

} // namespace klunortredi::cli
