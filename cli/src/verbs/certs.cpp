#include "verbs/verbs.hpp"

#include "certificates.hpp"
#include "console.hpp"
#include "crypto/wincrypt/certificate_store.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "failure.hpp"
#include "installed.hpp"
#include "options.hpp"
#include "output_file.hpp"
#include "pem.hpp"
#include "printable.hpp"
#include "skipped_entries.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <nlohmann/json.hpp>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
using orvik::plugin::crypto::ICertificateStore;
using orvik::plugin::wincrypt::RegistryCertificateStore;

std::string placeOf(const CertsArguments& arguments) {
    return arguments.provider.empty() ? "store " + arguments.store : "the containers of " + arguments.provider;
}

std::vector<CertificatePtr> chosen(const CertsArguments& arguments) {
    return arguments.provider.empty() ? storeCertificates(arguments.store)
                                      : chooseProvider(arguments.provider)->certificates();
}

CertificatePtr wanted(const CertsArguments& arguments) {
    return arguments.provider.empty() ? findInStore(arguments.store, arguments.which)
                                      : findCertificate(chosen(arguments), arguments.which, placeOf(arguments));
}

/// The days of "30d". Throws Failure (exit 2) for anything else.
long daysOf(const std::string& text) {
    constexpr std::size_t mostDigits = 5; // some hundred years
    const auto digits = text.find_first_not_of("0123456789");
    if (digits == 0 || digits == std::string::npos || digits > mostDigits || text.substr(digits) != "d") {
        throw Failure(ExitCode::usage, "cannot use --expiring " + printable(text), "this is not a number of days",
                      "write it as 30d");
    }
    return std::stol(text);
}

/// Leaves those that end within the days, or have ended.
void keepExpiring(std::vector<CertificatePtr>& certificates, const std::string& days) {
    const auto limit = boost::posix_time::second_clock::universal_time() + boost::gregorian::days(daysOf(days));
    std::erase_if(certificates, [&](const CertificatePtr& one) {
        const auto end = one->notAfter();
        return end.is_special() || end > limit;
    });
}

} // namespace

void refuseProvider(const CertsArguments& arguments, const char* verb) {
    if (!arguments.provider.empty()) {
        throw Failure(ExitCode::usage, std::string("cannot use --provider with certs ") + verb,
                      "it works on a store, not on the certificates in containers", "name the store with --store");
    }
}

ExitCode listCertificates(Session& session, const CertsArguments& arguments) {
    auto found = chosen(arguments);
    if (!arguments.expiring.empty()) {
        keepExpiring(found, arguments.expiring);
    }
    Json list = Json::array();
    for (const auto& certificate : found) {
        list.push_back(toJson(*certificate));
    }
    const auto skipped = skippedEntries();
    session.console.result({{"certificates", list}, {"skipped", toJson(skipped)}}, [&](std::ostream& out) {
        for (const auto& certificate : found) {
            print(out, *certificate);
        }
        if (found.empty() && skipped.empty()) {
            out << "no certificates in " << placeOf(arguments)
                << (arguments.expiring.empty() ? "" : " that end so soon") << '\n';
        }
    });
    return firstUnread(skipped) == nullptr ? ExitCode::done : ExitCode::input;
}

ExitCode showCertificate(Session& session, const CertsArguments& arguments) {
    const auto certificate = wanted(arguments);
    session.console.result({{"certificates", Json::array({toJson(*certificate)})}},
                           [&](std::ostream& out) { print(out, *certificate); });
    return ExitCode::done;
}

ExitCode deleteCertificate(Session& session, const CertsArguments& arguments) {
    refuseProvider(arguments, "delete");
    const auto certificate = findInStore(arguments.store, arguments.which);
    if (!RegistryCertificateStore(arguments.store, ICertificateStore::system).deleteCertificate(*certificate)) {
        throw Failure(ExitCode::input, "cannot delete " + titleOf(*certificate),
                      "it cannot be found in store " + arguments.store + " any more", {},
                      orvik::plugin::wincrypt::GetLastErrorEx());
    }
    session.console.result({{"deleted", toJson(*certificate)}, {"store", arguments.store}}, [&](std::ostream& out) {
        out << "deleted " << titleOf(*certificate) << " from store " << arguments.store << '\n';
    });
    return ExitCode::done;
}

ExitCode nameCertificate(Session& session, const CertsArguments& arguments) {
    refuseProvider(arguments, "set-name");
    const auto certificate = findInStore(arguments.store, arguments.which);
    if (!certificate->setFriendlyName(arguments.name)) {
        throw Failure(ExitCode::service, "cannot name " + titleOf(*certificate), "the service did not take the name",
                      {}, orvik::plugin::wincrypt::GetLastErrorEx());
    }
    session.console.result({{"named", toJson(*certificate)}, {"store", arguments.store}}, [&](std::ostream& out) {
        out << titleOf(*certificate) << " is named " << printableName(arguments.name) << '\n';
    });
    return ExitCode::done;
}

ExitCode exportCertificate(Session& session, const CertsArguments& arguments) {
    const auto certificate = wanted(arguments);
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
