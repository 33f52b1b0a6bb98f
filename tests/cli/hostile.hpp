#pragma once

/// Inputs made to cost memory or time: the command ends with a verdict or a refusal, in bounded memory. The limit on
/// computing time is generous and only ends what hangs.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <limits>

namespace cli_test {

// Sanitizers keep memory of their own: under them only the answer counts.
#if defined(KLUNORTREDI_SANITIZED)
inline constexpr long peakKiB = std::numeric_limits<long>::max();
#else
inline constexpr long peakKiB = 200L * 1024; ///< of the whole process
#endif
inline constexpr long hangs = 60; ///< seconds of computing

/// `part` so many times.
inline std::string repeated(const std::string& part, std::size_t times) {
    std::string all;
    all.reserve(part.size() * times);
    for (std::size_t i = 0; i < times; ++i) {
        all += part;
    }
    return all;
}

class HostileSize : public testing::Test {
protected:
    /// Verifies a file; whatever it is, memory stays bounded and nothing hangs.
    Outcome verify(const std::string& name, const std::string& octets, const std::vector<std::string>& options = {},
                   long cpuLimit = hangs) {
        files_.write(name, octets);
        RunOptions run;
        run.environment = {{"KLUNORTREDI_HOME", files_ / "home"}};
        run.cpuLimit = cpuLimit;
        std::vector<std::string> words{KLUNORTREDI, "verify", files_ / name};
        words.insert(words.end(), options.begin(), options.end());
        const Outcome outcome = test_support::run(words, run);
        EXPECT_EQ(outcome.signal, 0);
        EXPECT_LT(outcome.peakKiB, peakKiB);
        return outcome;
    }

    test_support::TempFolder files_;
};

} // namespace cli_test
