#include "verbs/verbs.hpp"

#include "certificates.hpp"
#include "console.hpp"
#include "trust.hpp"

#include <nlohmann/json.hpp>

#include <unistd.h>

namespace klunortredi::cli {

ExitCode chain(Session& session, const ChainArguments& arguments) {
    const bool isFile = arguments.which == "-" || ::access(arguments.which.c_str(), F_OK) == 0;
    const auto certificate = isFile ? readCertificate(arguments.which)
                                    : findCertificate(storeCertificates("my"), arguments.which, "store my");
    const Trust trust = judgeChain(*certificate, {});
    session.console.result(toJson(trust),
                           [&](std::ostream& out) { out << titleOf(*certificate) << ": " << describe(trust) << '\n'; });
    return trust.trusted ? ExitCode::done : ExitCode::untrusted;
}

} // namespace klunortredi::cli
