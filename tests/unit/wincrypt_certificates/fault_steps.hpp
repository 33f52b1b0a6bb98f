#pragma once

/// A scenario whose every call of the service fails once: what it answers or throws, and what it logs, call by call.

#include "certificates_fixture.hpp"
#include "unit/wincrypt_keys/fault_fixture.hpp"

#include <functional>
#include <string>
#include <vector>

namespace wincrypt_certificates {

using service_double::FaultOutcome;
using wincrypt_keys::faultCode;
using wincrypt_keys::system;

/// The code of the injected failure as records show it.
inline const std::string faultNumber = std::to_string(faultCode);

/// A call, and how the scenario ends when that call fails: `same` as when nothing fails.
struct Step {
    const char* function;
    std::string ending;
    std::size_t times = 1;
};
using Steps = std::vector<Step>;

inline constexpr const char* same = "same";

class FaultSteps : public CertificatesFixture {
protected:
    /// Walks `scenario`, whose answer as text is `undisturbed`. An ending is the answer, or the exception as
    /// wincrypt_keys::ending has it, and after " | " each record of a warning or an error. `arrange` runs before each
    /// round, on a fresh service.
    void walk(const std::string& name, const Steps& steps, const std::function<void()>& arrange,
              const std::function<std::string()>& scenario, const std::string& undisturbed) {
        std::vector<Step> calls;
        for (const Step& step : steps) {
            calls.insert(calls.end(), step.times, step);
        }
        std::string answer;
        const auto count = service_double::walkFaults({name,
                                                       [&] {
                                                           arrangeService();
                                                           arrange();
                                                           service().clearCalls();
                                                           clearLog();
                                                       },
                                                       [&] {
                                                           answer.clear();
                                                           answer = scenario();
                                                       },
                                                       [&](const FaultOutcome& outcome) {
                                                           ASSERT_LE(outcome.index, calls.size()) << "one call more";
                                                           const Step& step = calls[outcome.index - 1];
                                                           EXPECT_EQ(outcome.function, step.function);
                                                           EXPECT_EQ(observed(outcome, answer),
                                                                     step.ending == same ? undisturbed : step.ending);
                                                       },
                                                       faultCode});
        EXPECT_EQ(count, calls.size());
        EXPECT_EQ(observed({}, answer), undisturbed) << "nothing failed";
    }

private:
    [[nodiscard]] std::string observed(const FaultOutcome& outcome, const std::string& answer) const {
        std::string text = outcome.thrown ? wincrypt_keys::ending(outcome) : answer;
        for (const auto& record : log()) {
            if (record.severity == Severity::warning || record.severity == Severity::error) {
                text += " | " + record.text;
            }
        }
        return text;
    }
};

} // namespace wincrypt_certificates
