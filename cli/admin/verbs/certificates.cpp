#include "key_files.hpp"
#include "openssl_setup.hpp"
#include "orvik/plugin/base64.hpp"
#include "pem.hpp"
#include "verbs/verbs.hpp"

#include <nlohmann/json.hpp>

#include <string>

namespace klunortredi::admin {

cli::ExitCode listCertificates(Session& session, const CertificatesArguments& arguments) {
    const OpensslSetup setup;
    cli::PinSource password(session.options.password, "password", "--password");
    const KeyFileCertificates found = readCertificates(arguments.file, password);
    auto list = nlohmann::ordered_json::array();
    std::string pem;
    for (const csp::Bytes& der : found.certificates) {
        const std::string octets(der.begin(), der.end());
        list.push_back(orvik::plugin::base64::encode(octets));
        pem += cli::toPem(octets, "CERTIFICATE");
    }
    session.console.result({{"certificates", list}, {"keys", found.keys}}, [&](std::ostream& out) { out << pem; });
    return cli::ExitCode::done;
}

} // namespace klunortredi::admin
