// Killed anywhere: the old state or the new one, and the next run works.

#include "core/error.hpp"
#include "helper_process.hpp"
#include "keys/container.hpp"
#include "service.hpp"

#include <algorithm>
#include <csignal>

namespace csp_keys {

using klunortredi::csp::ApiError;
using klunortredi::csp::Container;

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;

class Killed : public ServiceTest {
protected:
    static void killed(const std::vector<std::string>& words, std::chrono::microseconds after) {
        test_support::RunOptions options;
        options.killAfter = after;
        helper(words, options);
    }

    /// How long the command takes when it is left alone.
    static std::chrono::microseconds duration(const std::vector<std::string>& words) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(helper(words).exit, 0);
        return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
    }
};

bool opensWith(const char* pin) {
    try {
        Container container = Container::open({"c", gost});
        container.resetTries();
        container.unlock(pin);
        return true;
    } catch (const ApiError& e) {
        EXPECT_EQ(e.code(), capi::SCARD_W_WRONG_CHV);
        return false;
    }
}

} // namespace

TEST_F(Killed, BeforeANewContainerIsLetGoThereIsNone) {
    EXPECT_EQ(helper({"die-requesting", "c"}).signal, SIGKILL);
    EXPECT_TRUE(containerNames(gost, 0).empty());
    makeContainer(gost, L"c", "");
    EXPECT_EQ(containerNames(gost, 0), std::vector<std::string>{"c"});
}

TEST_F(Killed, AnywhereInARequestLeavesNoneOrAWholeContainer) {
    const auto whole = duration({"request", "warm-up", "1234"});
    constexpr int steps = 16;
    int unfinished = 0;
    for (int step = 1; step <= steps; ++step) {
        killed({"request", "c", "1234"}, whole * step / steps);
        const auto names = containerNames(gost, 0);
        if (std::ranges::find(names, "c") == names.end()) {
            ++unfinished;
            EXPECT_EQ(helper({"request", "c", "1234"}).exit, 0);
        }
        Container::open({"c", gost}).check();
        EXPECT_TRUE(opensWith("1234"));
        klunortredi::csp::deleteContainer({"c", gost});
    }
    EXPECT_GT(unfinished, 0) << "no kill came before the end";
}

TEST_F(Killed, AnywhereInAPinChangeLeavesTheOldOrTheNewOne) {
    makeContainer(gost, L"c", "a");
    const auto whole = duration({"change", "c", "a", "b"});
    std::string current = "b";
    constexpr int steps = 12;
    for (int step = 1; step <= steps; ++step) {
        const std::string wanted = current == "a" ? "b" : "a";
        killed({"change", "c", current, wanted}, whole * step / steps);
        Container::open({"c", gost}).check();
        const bool changed = opensWith(wanted.c_str());
        EXPECT_NE(changed, opensWith(current.c_str())) << "exactly one of them";
        current = changed ? wanted : current;
    }
}

} // namespace csp_keys
