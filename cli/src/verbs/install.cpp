#include "verbs/verbs.hpp"

#include "certificates.hpp"
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

namespace klunortredi::cli {

ExitCode install(Session& session, const InstallArguments& arguments) {
    using orvik::plugin::crypto::exception::CryptoException;

    const CertificatePtr certificate = readCertificate(arguments.certificate);
    const auto providers = arguments.provider.empty() ? installedProviders()
                                                      : std::vector<ProviderPtr>{chooseProvider(arguments.provider)};
    const Container container = findContainer(providers, arguments.container);
    const std::wstring name = text::wide(container.name);
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

    session.console.result({{"certificate", toJson(*certificate)}, {"container", container.name}, {"store", "my"}},
                           [&](std::ostream& out) {
                               out << "installed " << titleOf(*certificate) << "\n  into container "
                                   << printable(container.name) << " and store my\n  thumbprint "
                                   << thumbprintOf(*certificate) << '\n';
                           });
    return ExitCode::done;
}

} // namespace klunortredi::cli
