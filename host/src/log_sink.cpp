// The framework's records without Boost.Log, for a program that holds the framework in its own file and shares it with
// nobody: the sink gets them directly, and without a sink they go nowhere.

#include "orvik/plugin/log.hpp"

#include <atomic>
#include <mutex>
#include <utility>

namespace orvik::plugin::log {

namespace {

std::atomic<Severity> level = Severity::trace;

/// The sink and the lock under which it is called; they outlive every other static object that writes a record.
struct Target {
    std::mutex mutex;
    Sink sink;
    std::atomic<bool> there = false;
};

Target& target() {
    static auto* const instance = new Target;
    return *instance;
}

} // namespace

void write(Severity severity, std::string_view text) noexcept {
    Target& to = target();
    if (severity < level || !to.there) {
        return;
    }
    try {
        const std::lock_guard lock(to.mutex);
        if (to.sink) {
            to.sink(severity, text);
        }
    } catch (...) { // NOLINT(bugprone-empty-catch): a record that cannot be written must not fail the operation
    }
}

void setLevel(Severity least) {
    level = least;
}

void setSink(Sink sink) {
    Target& to = target();
    const std::lock_guard lock(to.mutex);
    to.there = static_cast<bool>(sink);
    to.sink = std::move(sink);
}

} // namespace orvik::plugin::log
