#include "verbs/verbs.hpp"

#include "console.hpp"
#include "crypto/wincrypt/csr_creator.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "installed.hpp"
#include "options.hpp"
#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/crypto/tools.hpp"
#include "orvik/plugin/tools.hpp"
#include "output_file.hpp"
#include "pem.hpp"
#include "pin.hpp"
#include "printable.hpp"
#include "text.hpp"
#include "unfinished_request.hpp"

#include <boost/smart_ptr/make_shared.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <string_view>
#include <utility>

namespace klunortredi::cli {

namespace {

/// The provider's usual parameter set when the person names none: its table row says which.
std::string usualParamSet(const orvik::plugin::crypto::IProvider& provider) {
    const auto record = orvik::plugin::crypto::tools::providerInfo(text::utf8(provider.name()));
    return record && !record->paramSets.empty() ? record->paramSets.front() : std::string{};
}

/// The subject with OIDs in place of short names. Throws Failure for anything but "NAME=VALUE;NAME=VALUE" with at least
/// one pair: a mistake here would only show in the issued certificate.
std::string subjectWithOids(const std::string& subject) {
    std::string result;
    for (const auto& [name, value] : orvik::plugin::tools::split(subject, orvik::plugin::constant::kv_separator,
                                                                 orvik::plugin::constant::value_separator)) {
        const std::string oid = text::oidOfAttribute(name);
        if (oid.empty() || value.empty()) {
            throw Failure(ExitCode::usage, "cannot use --subject",
                          oid.empty() ? "'" + printable(name) + "' is not an attribute of a name"
                                      : "the attribute '" + printable(name) + "' has no value",
                          "for example 'CN=Ivan Ivanov;O=\"Horns; Hooves\";C=RU', with short names or OIDs");
        }
        if (oid == "2.5.4.6" && value.size() != 2) {
            throw Failure(ExitCode::usage, "cannot use --subject", "a country (C, 2.5.4.6) has two letters",
                          "for example RU");
        }
        result += oid;
        result += orvik::plugin::constant::kv_separator;
        result += value;
        result += orvik::plugin::constant::value_separator;
    }
    if (result.empty()) {
        throw Failure(ExitCode::usage, "cannot use --subject", "it is empty", "for example 'CN=Ivan Ivanov;C=RU'");
    }
    return result;
}

/// Values of the extension 1.2.643.100.114.
constexpr std::pair<std::string_view, unsigned> identifications[] = {
    {"personal", 0}, {"certificate", 1}, {"passport", 2}, {"system", 3}};

boost::optional<unsigned> identificationOf(const std::string& name) {
    const auto* const row = std::ranges::find(identifications, name, &std::pair<std::string_view, unsigned>::first);
    return row == std::end(identifications) ? boost::none : boost::make_optional(row->second);
}

/// Which provider makes which keys.
ExitCode listKeys(const Session& session) {
    namespace tools = orvik::plugin::crypto::tools;
    auto list = nlohmann::ordered_json::array();
    for (const ProviderPtr& provider : installedProviders()) {
        const auto record = tools::providerInfo(text::utf8(provider->name()));
        auto sets = nlohmann::ordered_json::array();
        for (const std::string& oid : record ? record->paramSets : std::vector<std::string>{}) {
            const auto set = tools::algorithmParamSet(oid);
            sets.push_back({{"oid", oid}, {"name", set ? set->name : std::string{}}});
        }
        list.push_back({{"provider", text::utf8(provider->name())},
                        {"type", static_cast<unsigned>(provider->type())},
                        {"param_sets", sets}});
    }
    session.console.result({{"keys", list}}, [&](std::ostream& out) {
        for (const auto& row : list) {
            out << row["provider"].get<std::string>() << " (" << row["type"] << ")\n";
            for (const auto& set : row["param_sets"]) {
                out << "  --param-set " << set["oid"].get<std::string>() << "  " << set["name"].get<std::string>()
                    << '\n';
            }
        }
    });
    return ExitCode::done;
}

void checkOids(const RequestArguments& arguments) {
    if (!arguments.paramSet.empty()) {
        text::checkOid("--param-set", arguments.paramSet);
    }
    for (const std::string& oid : arguments.enhancedKeyUsage) {
        text::checkOid("--eku", oid);
    }
    for (const std::string& oid : arguments.policies) {
        text::checkOid("--policy", oid);
    }
}

auto makeRequest(const boost::shared_ptr<orvik::plugin::crypto::CsrCreatorParams>& params, const std::string& container,
                 const std::string& pin) {
    try {
        return orvik::plugin::wincrypt::CsrCreator().create(params, pin);
    } catch (...) {
        throw currentFailure("cannot make a key pair in container " + container);
    }
}

} // namespace

ExitCode request(Session& session, const RequestArguments& arguments) {
    if (arguments.list) {
        return listKeys(session);
    }
    if (arguments.container.empty()) {
        throw Failure(ExitCode::usage, "cannot make a request", "--container is required",
                      "name the new container for the key; 'klunortredi request --help' shows the rest");
    }
    const std::string subject = subjectWithOids(arguments.subject);
    checkOids(arguments);
    // The output is claimed first: a key pair whose request cannot be written is of no use.
    OutputFile out(arguments.out.empty() ? arguments.container + ".csr" : arguments.out, session.options.force);
    const auto chosen = chooseProvider(arguments.provider);
    UnfinishedRequest unfinished(out, chosen, arguments.container);
    if (unfinished.deletedContainer()) {
        session.console.note("klunortredi: container " + arguments.container +
                             " of a run that was killed before its request was written is deleted, and made anew");
    }

    auto params = boost::make_shared<orvik::plugin::crypto::CsrCreatorParams>();
    params->provider = chosen;
    params->container = text::wide(arguments.container);
    params->subject = subject;
    params->paramSet = arguments.paramSet.empty() ? usualParamSet(*params->provider) : arguments.paramSet;
    params->keyUsage = static_cast<std::uint16_t>(text::keyUsageBits(arguments.keyUsage));
    params->enhancedKeyUsage = arguments.enhancedKeyUsage;
    params->certificatePolicies = arguments.policies;
    params->dnsNames = arguments.dnsNames;
    params->emailNames = arguments.emailNames;
    params->userPrincipalName = arguments.userPrincipalName;
    params->identificationKind = identificationOf(arguments.identification);
    params->privateKeyDays = boost::make_optional(arguments.keyDays > 0, arguments.keyDays);
    params->machineInfo = !arguments.withoutMachineInfo;
    params->subjectSignTool = params->provider->subjectSignTool().value_or("");
    params->exportable = arguments.exportable;

    const std::string pin = session.pin.askNew("New PIN for container " + arguments.container + ": ");
    unfinished.begin();
    const auto result = makeRequest(params, arguments.container, pin);
    const std::string der = orvik::plugin::base64::decode(result->request);
    try {
        out.write(session.options.pem ? toPem(der, "CERTIFICATE REQUEST") : der);
        out.commit();
    } catch (...) {
        unfinished.abandon(der);
        throw;
    }

    const std::string provider = text::utf8(params->provider->name());
    const auto print = [&](std::ostream& stream) {
        stream << "made a key pair in container " << result->containerName << " (" << provider << ")\n"
               << "wrote the certificate request to " << out.path() << '\n';
    };
    if (out.path() == "-") { // standard output is the request's
        return ExitCode::done;
    }
    session.console.result({{"container", result->containerName},
                            {"path", result->containerPath},
                            {"provider", provider},
                            {"type", static_cast<unsigned>(params->provider->type())},
                            {"output", out.path()},
                            {"bytes", der.size()}},
                           print);
    return ExitCode::done;
}

} // namespace klunortredi::cli
