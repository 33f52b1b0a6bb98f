#include "containers.hpp"
#include "core/error.hpp"
#include "refusal.hpp"
#include "verbs/verbs.hpp"

#include <nlohmann/json.hpp>

namespace klunortredi::admin {

cli::ExitCode unlockTries(Session& session, const ContainerArguments& arguments) {
    const csp::ContainerId id = findContainer(arguments.name, arguments.provider);
    csp::Container container = csp::Container::open(id);
    try {
        container.resetTries();
    } catch (const csp::ApiError& e) {
        throw refusal("cannot unlock container " + id.name, e);
    }
    const DWORD tries = csp::pinTryLimit; // all is done: nothing is read that could fail
    nlohmann::ordered_json document = describe(id);
    document["tries_left"] = tries;
    session.console.result(document, [&](std::ostream& out) {
        out << "unlocked container " << id.name << ": " << tries << " tries left, the PIN is as it was\n";
    });
    return cli::ExitCode::done;
}

} // namespace klunortredi::admin
