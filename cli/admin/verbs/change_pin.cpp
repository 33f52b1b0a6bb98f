#include "containers.hpp"
#include "core/error.hpp"
#include "refusal.hpp"
#include "verbs/verbs.hpp"

#include <nlohmann/json.hpp>

namespace klunortredi::admin {

cli::ExitCode changePin(Session& session, const ContainerArguments& arguments) {
    const csp::ContainerId id = findContainer(arguments.name, arguments.provider);
    const std::string what = "cannot change the PIN of container " + id.name;
    csp::Container container = csp::Container::open(id);
    cli::PinSource old(session.options.pin);
    const csp::UnlockedKeys keys = unlock(container, old, what);
    cli::PinSource chosen(session.options.newPin, "new PIN", "--new-pin");
    const csp::Secret secret = askNewPin(chosen, id);
    try {
        container.changePin(keys, csp::view(secret));
    } catch (const csp::ApiError& e) {
        throw refusal(what, e);
    }
    session.console.result(describe(id),
                           [&](std::ostream& out) { out << "changed the PIN of container " << id.name << '\n'; });
    return cli::ExitCode::done;
}

} // namespace klunortredi::admin
