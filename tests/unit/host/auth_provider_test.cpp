#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_auth_handle.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <boost/smart_ptr/make_shared.hpp>
#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using namespace orvik::plugin::crypto;
using exception::CryptoException;
using orvik::plugin::exception::ApplicationException;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned unlimited = 1000;

/// A container with the PIN "right".
class Handle : public IAuthHandle {
public:
    bool login(const std::string& pin) override {
        tried.push_back(pin);
        return pin == "right";
    }
    [[nodiscard]] std::uint32_t status() const override { return initial; }
    [[nodiscard]] std::uint64_t states() const override { return loggedIn; }
    [[nodiscard]] std::wstring container() const override { return L"box"; }
    [[nodiscard]] boost::optional<unsigned> maxAttempts() const override { return limit; }
    [[nodiscard]] bool isLocked() const override { return tried.size() >= lockedAfter; }
    [[nodiscard]] bool isAuthRejected() const override { return tried.size() >= rejectedAfter; }

    boost::optional<unsigned> limit;
    std::size_t lockedAfter = unlimited;
    std::size_t rejectedAfter = unlimited;
    std::vector<std::string> tried;
};

/// Answers from a list and notes what it was told; cancels at its end.
class Script {
public:
    explicit Script(std::vector<std::string> answers) {
        AuthProvider::setDialog([this, answers = std::move(answers)](const IAuthHandle& handle, unsigned attempt) {
            EXPECT_EQ(handle.container(), L"box");
            const std::size_t question = attempts.size();
            attempts.push_back(attempt);
            return question < answers.size() ? boost::optional<std::string>(answers[question]) : boost::none;
        });
    }
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;
    ~Script() { AuthProvider::setDialog({}); }

    std::vector<unsigned> attempts;
};

TEST(AuthorizeHandle, TriesTheGivenPinFirst) {
    const Script script({"right"});
    const auto handle = boost::make_shared<Handle>();
    EXPECT_TRUE(AuthProvider::authorize(handle, "right"));
    EXPECT_THAT(handle->tried, ElementsAre("right"));
    EXPECT_THAT(script.attempts, IsEmpty());
}

TEST(AuthorizeHandle, AsksWhenTheGivenPinIsWrong) {
    const Script script({"wrong too", "right"});
    const auto handle = boost::make_shared<Handle>();
    EXPECT_TRUE(AuthProvider::authorize(handle, "wrong"));
    EXPECT_THAT(handle->tried, ElementsAre("wrong", "wrong too", "right"));
    EXPECT_THAT(script.attempts, ElementsAre(1, 2));
}

TEST(AuthorizeHandle, AsksWithoutAGivenPin) {
    const Script script({"right"});
    const auto handle = boost::make_shared<Handle>();
    EXPECT_TRUE(AuthProvider::authorize(handle, ""));
    EXPECT_THAT(script.attempts, ElementsAre(0));
}

TEST(AuthorizeHandle, EndsWhenThePersonCancels) {
    const Script script({"wrong"});
    const auto handle = boost::make_shared<Handle>();
    EXPECT_FALSE(AuthProvider::authorize(handle, ""));
    EXPECT_THAT(handle->tried, ElementsAre("wrong"));
    EXPECT_THAT(script.attempts, ElementsAre(0, 1));
}

TEST(AuthorizeHandle, EndsWhenTheHandleIsRejected) {
    const Script script({"a", "b", "c", "right"});
    const auto handle = boost::make_shared<Handle>();
    handle->rejectedAfter = 3;
    EXPECT_FALSE(AuthProvider::authorize(handle, ""));
    EXPECT_THAT(handle->tried, ElementsAre("a", "b", "c"));
}

TEST(AuthorizeHandle, EndsWhenTheContainerIsLocked) {
    const Script script({"a", "right"});
    const auto handle = boost::make_shared<Handle>();
    handle->lockedAfter = 1;
    EXPECT_FALSE(AuthProvider::authorize(handle, ""));
    EXPECT_THAT(handle->tried, ElementsAre("a"));
}

TEST(AuthorizeHandle, EndsAfterTheHandlesNumberOfAttempts) {
    const Script script({"a", "b", "right"});
    const auto handle = boost::make_shared<Handle>();
    handle->limit = 2;
    EXPECT_FALSE(AuthProvider::authorize(handle, ""));
    EXPECT_THAT(handle->tried, ElementsAre("a", "b"));
}

TEST(AuthorizeHandle, RefusesWithoutADialogue) {
    const auto handle = boost::make_shared<Handle>();
    EXPECT_FALSE(AuthProvider::authorize(handle, ""));
    EXPECT_THAT(handle->tried, IsEmpty());
    EXPECT_FALSE(AuthProvider::authorize(handle, "wrong"));
    EXPECT_TRUE(AuthProvider::authorize(handle, "right"));
}

class Key : public IPrivateKey {
public:
    [[nodiscard]] boost::shared_ptr<ICertificate> certificate() const override { return {}; }
    [[nodiscard]] boost::shared_ptr<IProvider> provider() const override { return {}; }
    void authenticate(const std::string& pin) override {
        EXPECT_EQ(pin, "");
        ++asked;
        if (outcome) {
            outcome();
        }
    }
    [[nodiscard]] void* context() const override { return nullptr; }
    [[nodiscard]] bool authenticated() const override { return unlocked; }
    void resetAuthentication() override {}
    [[nodiscard]] bool supportsAuthentication() const override { return takesPin; }
    [[nodiscard]] unsigned keySpec() const override { return 1; }

    bool unlocked = false;
    bool takesPin = true;
    int asked = 0;
    std::function<void()> outcome;
};

TEST(AuthorizeKey, LeavesAnUnlockedKeyAlone) {
    const auto key = boost::make_shared<Key>();
    key->unlocked = true;
    EXPECT_TRUE(AuthProvider::authorize(key, "to sign"));
    EXPECT_EQ(key->asked, 0);
}

TEST(AuthorizeKey, LeavesAKeyWithoutPinAlone) {
    const auto key = boost::make_shared<Key>();
    key->takesPin = false;
    EXPECT_TRUE(AuthProvider::authorize(key, ""));
    EXPECT_EQ(key->asked, 0);
}

TEST(AuthorizeKey, AuthenticatesOnce) {
    const auto key = boost::make_shared<Key>();
    EXPECT_TRUE(AuthProvider::authorize(key, ""));
    EXPECT_EQ(key->asked, 1);
}

TEST(AuthorizeKey, AnswersNoToARefusal) {
    const auto key = boost::make_shared<Key>();
    key->outcome = [] { throw CryptoException(CryptoException::Code::authorizationRefused); };
    EXPECT_FALSE(AuthProvider::authorize(key, ""));
}

TEST(AuthorizeKey, PassesOtherFailuresOn) {
    const auto key = boost::make_shared<Key>();
    key->outcome = [] { throw CryptoException(CryptoException::Code::wrongProviderType); };
    EXPECT_THROW(AuthProvider::authorize(key, ""), CryptoException);
    key->outcome = [] { throw ApplicationException(ApplicationException::Code::cancelled); };
    EXPECT_THROW(AuthProvider::authorize(key, ""), ApplicationException);
}

} // namespace
