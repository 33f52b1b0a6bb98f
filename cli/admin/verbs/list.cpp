#include "containers.hpp"
#include "core/error.hpp"
#include "verbs/verbs.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace klunortredi::admin {

namespace {

using Json = nlohmann::ordered_json;

/// A container in a row; of a damaged one the name is all there is.
Json row(const csp::ContainerId& id) {
    Json document = describe(id);
    try {
        const csp::Container container = csp::Container::open(id);
        const auto exportable = [](const csp::KeyEntry& key) { return key.exportable; };
        document.update({{"keys", keyNames(container)},
                         {"certificate", certificateThumbprint(container)},
                         {"exportable", std::ranges::any_of(container.keys(), exportable)},
                         {"pin", container.wantsPin()},
                         {"tries_left", container.triesRemaining()},
                         {"damaged", false}});
    } catch (const csp::ApiError&) {
        document.update({{"keys", Json::array()}, {"certificate", ""}, {"damaged", true}});
    }
    return document;
}

std::string remark(const Json& document) {
    if (document["damaged"] == true) {
        return "damaged, see 'klunortredi-csp container check'";
    }
    std::string text = document["exportable"] == true ? "exportable" : "not exportable";
    if (document["pin"] == false) {
        return text + ", no PIN";
    }
    const auto tries = document["tries_left"].get<DWORD>();
    return text + (tries == 0 ? ", locked" : ", " + std::to_string(tries) + " PIN tries left");
}

} // namespace

cli::ExitCode list(Session& session, const ContainerArguments& arguments) {
    Json rows = Json::array();
    for (const csp::ContainerId& id : allContainers(arguments.provider)) {
        rows.push_back(row(id));
    }
    session.console.result({{"containers", rows}}, [&](std::ostream& out) {
        for (const Json& document : rows) {
            out << document["name"].get<std::string>() << "  (" << remark(document) << ")  "
                << document["provider"].get<std::string>() << '\n';
        }
        if (rows.empty()) {
            out << "no containers\n";
        }
    });
    return cli::ExitCode::done;
}

} // namespace klunortredi::admin
