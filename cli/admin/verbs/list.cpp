#include "containers.hpp"
#include "core/error.hpp"
#include "printable.hpp"
#include "service_words.hpp"
#include "verbs/verbs.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>

namespace klunortredi::admin {

namespace {

using Json = nlohmann::ordered_json;

/// A container in a row; of one that cannot be read the name is all there is. Nothing when it was deleted meanwhile.
std::optional<Json> row(const csp::ContainerId& id) {
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
    } catch (const csp::ApiError& e) {
        if (e.code() == capi::NTE_BAD_KEYSET) {
            return std::nullopt;
        }
        document.update({{"keys", Json::array()}, {"certificate", ""}, {"damaged", isDamage(e)}});
        if (!isDamage(e)) {
            document["error"] = cli::serviceReason(e.code());
        }
    }
    return document;
}

std::string remark(const Json& document) {
    if (document["damaged"] == true) {
        return "damaged, see 'klunortredi-csp container check'";
    }
    if (document.contains("error")) {
        return "cannot be read: " + document["error"].get<std::string>();
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
        if (auto document = row(id)) {
            rows.push_back(*std::move(document));
        }
    }
    session.console.result({{"containers", rows}}, [&](std::ostream& out) {
        for (const Json& document : rows) {
            out << cli::printable(document["name"].get<std::string>()) << "  (" << remark(document) << ")  "
                << document["provider"].get<std::string>() << '\n';
        }
        if (rows.empty()) {
            out << "no containers\n";
        }
    });
    return cli::ExitCode::done;
}

} // namespace klunortredi::admin
