#include "containers.hpp"
#include "core/error.hpp"
#include "verbs/verbs.hpp"

#include <nlohmann/json.hpp>

namespace klunortredi::admin {

namespace {

using cli::ExitCode;

/// What there is to say of one container.
struct Finding {
    csp::ContainerId id;
    std::vector<std::string> damaged; ///< file names
    bool locked = false;
    bool pinChecked = false;
};

/// The files that are damaged; the description alone, when it is, for it tells of the others.
Finding inspect(const csp::ContainerId& id, cli::PinSource& pin) {
    Finding finding{id, {}, false, false};
    try {
        csp::Container container = csp::Container::open(id);
        finding.damaged = container.damagedFiles();
        if (finding.damaged.empty()) {
            finding.locked = container.wantsPin() && container.triesRemaining() == 0;
            if (!pin.fromTerminal()) { // nobody is asked; a PIN that was given is put to the test
                unlock(container, pin, "cannot check container " + id.name);
                finding.pinChecked = true;
            }
        }
    } catch (const csp::ApiError& e) {
        if (e.code() != capi::NTE_KEYSET_ENTRY_BAD) {
            throw;
        }
        finding.damaged.emplace_back(csp::metaFileName);
    }
    return finding;
}

nlohmann::ordered_json toJson(const Finding& finding) {
    nlohmann::ordered_json document = describe(finding.id);
    document.update({{"good", finding.damaged.empty()},
                     {"damaged_files", finding.damaged},
                     {"locked", finding.locked},
                     {"pin_checked", finding.pinChecked}});
    return document;
}

void print(std::ostream& out, const Finding& finding) {
    out << finding.id.name << "  (" << providerOf(finding.id).name << ")  ";
    if (finding.damaged.empty()) {
        out << (finding.locked ? "good, locked" : "good") << (finding.pinChecked ? ", the PIN opens it" : "") << '\n';
        return;
    }
    out << "DAMAGED:";
    for (const std::string& file : finding.damaged) {
        out << ' ' << file;
    }
    out << '\n';
}

} // namespace

ExitCode check(Session& session, const ContainerArguments& arguments) {
    const auto ids = arguments.name.empty() ? allContainers(arguments.provider)
                                            : std::vector{findContainer(arguments.name, arguments.provider)};
    cli::PinSource pin(session.options.pin);
    std::vector<Finding> findings;
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    bool good = true;
    for (const csp::ContainerId& id : ids) {
        findings.push_back(inspect(id, pin));
        rows.push_back(toJson(findings.back()));
        good = good && findings.back().damaged.empty();
    }
    session.console.result({{"good", good}, {"containers", rows}}, [&](std::ostream& out) {
        for (const Finding& finding : findings) {
            print(out, finding);
        }
        if (findings.empty()) {
            out << "no containers\n";
        }
    });
    return good ? ExitCode::done : ExitCode::no;
}

} // namespace klunortredi::admin
