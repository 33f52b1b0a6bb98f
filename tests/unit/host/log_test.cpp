#include "orvik/plugin/log.hpp"

#include <gmock/gmock.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

namespace log = orvik::plugin::log;
using log::Severity;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::SizeIs;

/// Collects the records while it lives.
class Records {
public:
    Records() {
        log::setSink([this](Severity severity, std::string_view text) { all_.emplace_back(severity, text); });
    }
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;
    ~Records() { log::setSink({}); }
    [[nodiscard]] const auto& all() const { return all_; }

private:
    std::vector<std::pair<Severity, std::string>> all_;
};

TEST(Log, GoesNowhereUntilTheApplicationAsks) {
    const auto printed = [] {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        for (const auto write : {log::trace, log::debug, log::info, log::warning, log::error}) {
            write("record");
        }
        return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(printed(), "");
    { const Records taken; }
    EXPECT_EQ(printed(), "") << "the sink is taken away";
    log::setLevel(Severity::warning);
    EXPECT_THAT(printed(), AllOf(HasSubstr("warning"), HasSubstr("error"), Not(HasSubstr("info"))));
}

TEST(Log, HandsEverySeverityToTheSink) {
    const Records records;
    log::trace("t");
    log::debug("d");
    log::info("i");
    log::warning("wincrypt: «w»");
    log::error("e");
    EXPECT_THAT(records.all(),
                ElementsAre(Pair(Severity::trace, "t"), Pair(Severity::debug, "d"), Pair(Severity::info, "i"),
                            Pair(Severity::warning, "wincrypt: «w»"), Pair(Severity::error, "e")));
}

TEST(Log, DropsWhatIsBelowTheLevel) {
    const Records records;
    log::setLevel(Severity::warning);
    log::info("i");
    log::warning("w");
    log::error("e");
    EXPECT_THAT(records.all(), ElementsAre(Pair(Severity::warning, "w"), Pair(Severity::error, "e")));
}

TEST(Log, ReplacesTheSink) {
    const Records first;
    {
        const Records second;
        log::error("e");
        EXPECT_THAT(second.all(), SizeIs(1));
    }
    EXPECT_THAT(first.all(), IsEmpty());
}

TEST(Log, SurvivesASinkThatThrows) {
    log::setSink([](Severity, std::string_view) { throw std::runtime_error("disk full"); });
    log::error("e");
    log::setSink({});
    SUCCEED();
}

TEST(Log, TakesRecordsFromSeveralThreads) {
    const Records records;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int n = 0; n < 100; ++n) {
                log::info("record");
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(records.all(), SizeIs(400));
}

TEST(Quoted, PutsBackslashesBeforeQuotesAndBackslashes) {
    EXPECT_EQ(log::quoted("plain"), "\"plain\"");
    EXPECT_EQ(log::quoted(""), "\"\"");
    EXPECT_EQ(log::quoted(R"(\\.\HDIMAGE\"n")"), R"("\\\\.\\HDIMAGE\\\"n\"")");
}

} // namespace
