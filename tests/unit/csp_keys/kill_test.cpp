// Killed anywhere: the old state or the new one, and the next run works.

#include "core/error.hpp"
#include "helper_process.hpp"
#include "keys/container.hpp"
#include "service.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>

namespace csp_keys {

using klunortredi::csp::ApiError;
using klunortredi::csp::Container;
using test_support::killAtEachChange;

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;

class Killed : public ServiceTest {};

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

TEST_F(Killed, BeforeItReleasesItsContextAKeyPairThatWasReportedIsThere) {
    EXPECT_EQ(helper({"die-requesting", "c"}).signal, SIGKILL);
    EXPECT_EQ(containerNames(gost, 0), std::vector<std::string>{"c"});
    EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), testing::IsEmpty());
    EXPECT_TRUE(opensWith(""));
}

TEST_F(Killed, AnywhereInARequestLeavesNoneOrAWholeContainer) {
    int unfinished = 0;
    int whole = 0;
    const int kills = killAtEachChange(
        [](const auto& options, int) {
            return helper({"request", "c", "1234"}, options);
        },
        [&](int n) {
            const auto names = containerNames(gost, 0);
            if (std::ranges::find(names, "c") == names.end()) {
                ++unfinished;
                EXPECT_EQ(helper({"request", "c", "1234"}).exit, 0) << n;
            } else {
                ++whole;
            }
            EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), testing::IsEmpty()) << n;
            EXPECT_TRUE(opensWith("1234")) << n;
            klunortredi::csp::deleteContainer({"c", gost});
        });
    EXPECT_GT(kills, 5);
    EXPECT_GT(unfinished, 0);
    EXPECT_GT(whole, 0) << "the end of the process comes after everything";
}

TEST_F(Killed, AnywhereInAPinChangeLeavesTheOldOrTheNewOne) {
    makeContainer(gost, L"c", "a");
    std::string current = "a";
    std::string wanted = "b";
    const int kills = killAtEachChange(
        [&](const auto& options, int) {
            return helper({"change", "c", current, wanted}, options);
        },
        [&](int n) {
            EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), testing::IsEmpty()) << n;
            const bool changed = opensWith(wanted.c_str());
            EXPECT_NE(changed, opensWith(current.c_str())) << "exactly one of them, " << n;
            if (changed) {
                std::swap(current, wanted);
            }
        });
    EXPECT_GT(kills, 5);
}

} // namespace csp_keys
