// The suite itself: its list of deviations, and whether it notices a service that goes wrong.

#include "deviations.hpp"
#include "support/process.hpp"
#include "support/temp_folder.hpp"

#include <gmock/gmock.h>

namespace {

using conformance::Deviations;
using testing::HasSubstr;

constexpr const char* verification = "Providers/SignatureOf.IsRefusedForOtherDataOrWhenChanged/Type80";
constexpr const char* freeing = "Texts.FreeingNothingIsNoError";

/// Runs the suite on the embedded service behind the deviating entry points.
class Suite : public testing::Test {
protected:
    [[nodiscard]] test_support::Outcome run(const std::string& test, const std::string& deviations,
                                            const std::vector<std::string>& more = {}) const {
        std::vector<std::string> command{CONFORMANCE_SUITE,
                                         "--service",
                                         std::string(DEVIATING_SERVICE) + ':' + EMBEDDED_SERVICE,
                                         "--deviations",
                                         folder_.write("deviations.txt", deviations),
                                         "--gtest_filter=" + test};
        command.insert(command.end(), more.begin(), more.end());
        return test_support::run(command);
    }
    test_support::TempFolder folder_;
};

} // namespace

TEST(DeviationList, GivesTheReasonOfAListedTest) {
    const Deviations list("# a service\n\n  Suite.Test =  does  not \r\nOther.*/Type80=neither = it\n");
    EXPECT_EQ(list.reason("Suite.Test"), "does  not");
    EXPECT_EQ(list.reason("Other.Anything/Type80"), "neither = it");
    EXPECT_EQ(list.reason("Other.Anything/Type81"), std::nullopt);
    EXPECT_EQ(list.reason("Suite.Tes"), std::nullopt);
}

TEST(DeviationList, RefusesLinesWithoutAReason) {
    EXPECT_THROW(Deviations("Suite.Test"), std::runtime_error);
    EXPECT_THROW(Deviations("Suite.Test = "), std::runtime_error);
    EXPECT_THROW(Deviations("= reason"), std::runtime_error);
    EXPECT_THROW(Deviations("Suite.Test = one\nSuite.Test = other"), std::runtime_error);
}

TEST_F(Suite, NoticesADeviation) {
    const auto outcome = run(verification, "");
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_THAT(outcome.out, HasSubstr("accepted"));
}

TEST_F(Suite, ReportsAKnownDeviationWithoutFailing) {
    const auto outcome = run(verification, std::string(verification) + " = believes everything");
    EXPECT_EQ(outcome.exit, 0) << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr("[KNOWN DEVIATION] " + std::string(verification) + ": believes everything"));
}

TEST_F(Suite, FailsAtAnUnexpectedSuccess) {
    const auto outcome = run("LastError.IsWhatWasSet", "LastError.* = forgets");
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_THAT(outcome.out, HasSubstr("unexpected success"));
}

TEST_F(Suite, SurvivesACrashOfTheServiceWhenIsolated) {
    const auto outcome = run("Texts.*", "", {"--isolate"});
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_THAT(outcome.out, HasSubstr(std::string(freeing) + ": the service crashed"));
    EXPECT_THAT(outcome.out, HasSubstr(" 1 failed, 0 known deviations"));
}

TEST_F(Suite, TakesACrashForAKnownDeviationWhenListed) {
    const auto outcome = run(freeing, std::string(freeing) + " = cannot free nothing", {"--isolate"});
    EXPECT_EQ(outcome.exit, 0) << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr("1 tests, 0 failed, 1 known deviations"));
}

TEST_F(Suite, NamesMissingEntryPoints) {
    const auto outcome = test_support::run(
        {CONFORMANCE_SUITE, "--service", "libm.so.6", "--gtest_filter=Service/EntryPoint.*:LastError.IsWhatWasSet"});
    EXPECT_EQ(outcome.exit, 1);
    EXPECT_THAT(outcome.out, HasSubstr("60 FAILED TESTS"));
    EXPECT_THAT(outcome.out, HasSubstr("the service has no SetLastError"));
}

TEST_F(Suite, RefusesAServiceThatCannotBeOpened) {
    const auto outcome = test_support::run({CONFORMANCE_SUITE, "--service", folder_ / "none.so"});
    EXPECT_EQ(outcome.exit, 2);
    EXPECT_THAT(outcome.err, HasSubstr("none.so"));
}
