#include "arguments.hpp"
#include "containers.hpp"
#include "core/error.hpp"
#include "printable.hpp"
#include "refusal.hpp"
#include "secrets.hpp"
#include "verbs/verbs.hpp"

#include <nlohmann/json.hpp>

#include <optional>

namespace klunortredi::admin {

namespace {

using cli::ExitCode;
using cli::Failure;

/// What there is to say of one container.
struct Finding {
    csp::ContainerId id;
    std::vector<std::string> damaged; ///< file names
    bool locked = false;
    bool pinChecked = false;
    std::optional<Failure> trouble; ///< what kept it from being checked

    [[nodiscard]] bool good() const noexcept { return damaged.empty() && !trouble; }
};

/// The files that are damaged; the description alone, when it is, for it tells of the others.
Finding inspect(const csp::ContainerId& id, cli::PinSource& pin) {
    const std::string what = "cannot check container " + id.name;
    Finding finding{id, {}, false, false, {}};
    try {
        csp::Container container = csp::Container::open(id);
        finding.damaged = container.damagedFiles();
        if (finding.damaged.empty()) {
            finding.locked = container.wantsPin() && container.triesRemaining() == 0;
            if (!pin.fromTerminal()) { // nobody is asked; a PIN that was given is put to the test
                unlock(container, pin, what);
                finding.pinChecked = true;
            }
        }
    } catch (const csp::ApiError& e) {
        if (isDamage(e)) {
            finding.damaged.emplace_back(csp::metaFileName);
        } else {
            finding.trouble = refusal(what, e);
        }
    } catch (const Failure& e) {
        finding.trouble = e;
    }
    return finding;
}

/// Damage is what `check` looks for; after it comes what could not be looked at, then a container of another PIN.
ExitCode worst(const std::vector<Finding>& findings) {
    ExitCode exit = ExitCode::done;
    for (const Finding& finding : findings) {
        if (!finding.damaged.empty()) {
            return ExitCode::no;
        }
        if (finding.trouble && (exit == ExitCode::done || exit == ExitCode::pin)) {
            exit = finding.trouble->exit();
        }
    }
    return exit;
}

nlohmann::ordered_json toJson(const Finding& finding) {
    nlohmann::ordered_json document = describe(finding.id);
    document.update({{"good", finding.good()},
                     {"damaged_files", finding.damaged},
                     {"locked", finding.locked},
                     {"pin_checked", finding.pinChecked}});
    if (finding.trouble) {
        document["error"] = {{"code", finding.trouble->code()}, {"message", finding.trouble->what()}};
    }
    return document;
}

void print(std::ostream& out, const Finding& finding) {
    out << cli::printable(finding.id.name) << "  (" << providerOf(finding.id).name << ")  ";
    if (finding.trouble) {
        out << "NOT CHECKED\n";
        return;
    }
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
    if (!pin.fromTerminal()) {
        takeSecret(pin.ask({})); // a source that cannot be read is no finding of each container
    }
    std::vector<Finding> findings;
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const csp::ContainerId& id : ids) {
        Finding finding = inspect(id, pin);
        if (finding.trouble && !arguments.name.empty()) {
            throw *finding.trouble;
        }
        if (finding.trouble && finding.trouble->code() == capi::NTE_BAD_KEYSET) {
            continue; // deleted since it was listed
        }
        if (finding.trouble) {
            session.console.note(std::string(programName) + ": " + finding.trouble->what());
        }
        rows.push_back(toJson(finding));
        findings.push_back(std::move(finding));
    }
    const ExitCode exit = worst(findings);
    session.console.result({{"good", exit == ExitCode::done}, {"containers", rows}}, [&](std::ostream& out) {
        for (const Finding& finding : findings) {
            print(out, finding);
        }
        if (findings.empty()) {
            out << "no containers\n";
        }
    });
    return exit;
}

} // namespace klunortredi::admin
