#include "service_double/fault_walk.hpp"

#include "service_double/service_double.hpp"

#include <gtest/gtest.h>

#include <iostream>

namespace service_double {

namespace {

/// A scenario that never comes to an end would otherwise walk for ever.
constexpr std::size_t mostCalls = 10'000;

std::exception_ptr run(const std::function<void()>& scenario) {
    try {
        scenario();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

} // namespace

std::size_t walkFaults(const FaultWalk& walk) {
    for (std::size_t n = 1; n <= mostCalls; ++n) {
        service().reset();
        if (walk.arrange) {
            walk.arrange();
        }
        service().failCall(n, walk.code);
        const auto thrown = run(walk.scenario);
        const FaultOutcome outcome{n, service().failedCall(), service().failedFunction(), walk.code, thrown};
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, walk.name + ", failing: " + outcome.call);
        EXPECT_EQ(service().imbalance(), "");
        if (outcome.call.empty()) {
            EXPECT_FALSE(thrown) << "the scenario fails without a fault";
            std::cout << "fault walk \"" << walk.name << "\": " << n - 1 << " failures injected\n";
            return n - 1;
        }
        if (walk.expect) {
            walk.expect(outcome);
        }
    }
    ADD_FAILURE() << walk.name << " does not come to an end";
    return mostCalls;
}

} // namespace service_double
