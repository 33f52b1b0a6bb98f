#pragma once

/// Every call of a scenario fails once: the documented result, and nothing left behind.

#include "keys_fixture.hpp"

#include "service_double/fault_walk.hpp"

#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

namespace wincrypt_keys {

using service_double::FaultOutcome;
using service_double::walkFaults;

inline constexpr DWORD faultCode = 0x8009000E;
inline constexpr const char* streebog = "1.2.643.7.1.1.2.2";

/// Where and with which number the run ended; empty when it returned.
std::string ending(const FaultOutcome& outcome);

/// The ending with an error of the service.
std::string system(DWORD code, const std::string& place);

/// How many calls the failing one came after the last call of `function`: 0 for that call itself, std::string::npos
/// when there was none.
std::size_t stepsSince(const std::string& function, const FaultOutcome& outcome);

class FaultWalkTest : public KeysFixture {
protected:
    /// How a run ends, by the function that failed in it; a function that is not named here does no harm.
    using Endings = std::map<std::string, std::string>;
    using Arrangement = std::function<void()>;

    FaultWalkTest();
    ~FaultWalkTest() override;

    /// Two containers of the certificates' key, with a certificate in them.
    static void arrange();
    static void arrangeSharedContexts();

    /// The endings of what happens before a key's context is open.
    static Endings keyEndings();
    /// How the run ends by these; empty when its failure does no harm.
    static std::string endingIn(const Endings& endings, const FaultOutcome& outcome);

    static Provider box() { return provider(std::wstring(L"/keys/box")); }

    /// A certificate linked to the first container. Whether the link failed shows later.
    static boost::shared_ptr<Certificate> linkedCertificate();

    static std::size_t walk(const char* name, const std::function<void()>& scenario, const Endings& endings = {},
                            const Arrangement& arrangement = arrange, DWORD code = faultCode);

    /// Walks an operation that no failure makes throw. It answers as `byCall` has it, call by call, and with
    /// `undisturbed` when nothing fails.
    template <class Operation, class Answer = std::invoke_result_t<Operation>>
    static void expectAnswers(const char* name, Operation operation,
                              const std::type_identity_t<std::vector<Answer>>& byCall,
                              const std::type_identity_t<Answer>& undisturbed, const Arrangement& arrangement = arrange,
                              DWORD code = faultCode) {
        Answer answer{};
        const auto count = walkFaults({name, arrangement,
                                       [&] {
                                           answer = Answer{};
                                           answer = operation();
                                       },
                                       [&](const FaultOutcome& outcome) {
                                           EXPECT_EQ(ending(outcome), "");
                                           ASSERT_LE(outcome.index, byCall.size()) << "one call more than expected";
                                           EXPECT_EQ(answer, byCall[outcome.index - 1]);
                                       },
                                       code});
        EXPECT_EQ(count, byCall.size());
        EXPECT_EQ(answer, undisturbed) << "nothing failed";
    }
};

} // namespace wincrypt_keys
