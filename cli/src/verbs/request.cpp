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
#include "renewal.hpp"
#include "request_template.hpp"
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
    if (name.empty()) {
        return boost::none;
    }
    const auto* const row = std::ranges::find(identifications, name, &std::pair<std::string_view, unsigned>::first);
    if (row == std::end(identifications)) {
        throw Failure(ExitCode::usage, "cannot use --identification " + printable(name),
                      "it is not personal, certificate, passport or system");
    }
    return row->second;
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

using ParamsPtr = boost::shared_ptr<orvik::plugin::crypto::CsrCreatorParams>;
using ResultPtr = boost::shared_ptr<orvik::plugin::crypto::ICsrCreator::Result>;

/// A request and the type of the provider that signed it.
struct Made {
    ResultPtr result;
    unsigned type;
};

ResultPtr create(const ParamsPtr& params, const std::string& pin, const std::string& otherwise) {
    try {
        return orvik::plugin::wincrypt::CsrCreator().create(params, pin);
    } catch (...) {
        throw currentFailure(otherwise);
    }
}

constexpr const char* usualKeyUsage = "digitalSignature,nonRepudiation";

/// What the options ask for, whoever makes the key.
ParamsPtr paramsOf(const RequestArguments& arguments) {
    auto params = boost::make_shared<orvik::plugin::crypto::CsrCreatorParams>();
    const bool keepsUsage = arguments.renew && arguments.keyUsage.empty();
    const std::string usage = arguments.keyUsage.empty() ? usualKeyUsage : arguments.keyUsage;
    params->keyUsage = keepsUsage ? std::uint16_t{0} : static_cast<std::uint16_t>(text::keyUsageBits(usage));
    params->enhancedKeyUsage = arguments.enhancedKeyUsage;
    params->certificatePolicies = arguments.policies;
    params->dnsNames = arguments.dnsNames;
    params->emailNames = arguments.emailNames;
    params->userPrincipalName = arguments.userPrincipalName;
    params->identificationKind = identificationOf(arguments.identification);
    params->privateKeyDays = boost::make_optional(arguments.keyDays > 0, arguments.keyDays);
    params->machineInfo = !arguments.withoutMachineInfo;
    params->exportable = arguments.exportable;
    return params;
}

void setProvider(orvik::plugin::crypto::CsrCreatorParams& params, const ProviderPtr& provider) {
    params.provider = provider;
    params.subjectSignTool = provider->subjectSignTool().value_or("");
}

void write(const Session& session, OutputFile& out, const std::string& der) {
    out.write(session.options.pem ? toPem(der, "CERTIFICATE REQUEST") : der);
    out.commit();
}

/// Says what was made; `done` begins the text for the user.
ExitCode report(const Session& session, const OutputFile& out, const Made& made, const std::string& provider,
                const std::string& done) {
    if (out.path() == "-") { // standard output is the request's
        return ExitCode::done;
    }
    const nlohmann::ordered_json document{{"container", made.result->containerName},
                                          {"path", made.result->containerPath},
                                          {"provider", provider},
                                          {"type", made.type},
                                          {"output", out.path()},
                                          {"bytes", out.size()}};
    session.console.result(document, [&](std::ostream& stream) {
        stream << done << made.result->containerName << " (" << provider << ")\n"
               << "wrote the certificate request to " << out.path() << '\n';
    });
    return ExitCode::done;
}

std::string outputOf(const RequestArguments& arguments) {
    return arguments.out.empty() ? arguments.container + ".csr" : arguments.out;
}

ExitCode requestForNewKey(Session& session, const RequestArguments& arguments) {
    auto params = paramsOf(arguments);
    params->subject = subjectWithOids(arguments.subject);
    // The output is claimed first: a key pair whose request cannot be written is of no use.
    OutputFile out(outputOf(arguments), session.options.force);
    setProvider(*params, chooseProvider(arguments.provider));
    UnfinishedRequest unfinished(out, params->provider, arguments.container);
    if (unfinished.deletedContainer()) {
        session.console.note("klunortredi: container " + arguments.container +
                             " of a run that was killed before its request was written is deleted, and made anew");
    }
    params->container = text::wide(arguments.container);
    params->paramSet = arguments.paramSet.empty() ? usualParamSet(*params->provider) : arguments.paramSet;

    const std::string pin = session.pin.askNew("New PIN for container " + arguments.container + ": ");
    unfinished.begin();
    const auto result = create(params, pin, "cannot make a key pair in container " + arguments.container);
    const std::string der = orvik::plugin::base64::decode(result->request);
    try {
        write(session, out, der);
    } catch (...) {
        unfinished.abandon(der);
        throw;
    }
    return report(session, out, {result, static_cast<unsigned>(params->provider->type())},
                  text::utf8(params->provider->name()), "made a key pair in container ");
}

void refuseOptionsOfNewKeys(const RequestArguments& arguments) {
    if (arguments.exportable || !arguments.paramSet.empty()) {
        throw Failure(ExitCode::usage, "cannot make a request with --renew",
                      std::string(arguments.exportable ? "--exportable" : "--param-set") + " is for a new key", {});
    }
}

/// The names of the certificate, or of the options where there is none.
void nameSubject(orvik::plugin::crypto::CsrCreatorParams& params, const Container& container,
                 const RequestArguments& arguments) {
    const auto certificate = certificateFor(container);
    if (certificate) {
        keepNames(params, certificate);
    } else if (arguments.subject.empty()) {
        throw Failure(ExitCode::no, "cannot renew the certificate of container " + container.name,
                      "no certificate for its key is installed", "name the subject with --subject");
    } else if (arguments.keyUsage.empty()) {
        params.keyUsage = static_cast<std::uint16_t>(text::keyUsageBits(usualKeyUsage));
    }
    if (!arguments.subject.empty()) {
        params.encodedSubject.clear();
        params.subject = subjectWithOids(arguments.subject);
    }
}

ExitCode requestForExistingKey(Session& session, const RequestArguments& arguments) {
    refuseOptionsOfNewKeys(arguments);
    auto params = paramsOf(arguments);
    const auto providers =
        arguments.provider.empty() ? installedProviders() : std::vector{chooseProvider(arguments.provider)};
    const Container container = findContainer(providers, arguments.container);
    params->existingKey = true;
    params->container = text::wide(container.path);
    setProvider(*params, container.provider);
    nameSubject(*params, container, arguments);
    OutputFile out(outputOf(arguments), session.options.force);

    const std::string pin = session.pin.ask("PIN for container " + container.name + ": ");
    const auto result = create(params, pin, "cannot make a request for the key in container " + container.name);
    write(session, out, orvik::plugin::base64::decode(result->request));
    return report(session, out, {result, static_cast<unsigned>(params->provider->type())},
                  text::utf8(params->provider->name()), "made a request for the key in container ");
}

} // namespace

ExitCode request(Session& session, const RequestArguments& given) {
    if (given.list) {
        return listKeys(session);
    }
    const RequestArguments arguments = withTemplate(given);
    if (arguments.container.empty()) {
        throw Failure(ExitCode::usage, "cannot make a request", "--container is required",
                      "name the new container for the key; 'klunortredi request --help' shows the rest");
    }
    checkOids(arguments);
    return arguments.renew ? requestForExistingKey(session, arguments) : requestForNewKey(session, arguments);
}

} // namespace klunortredi::cli
