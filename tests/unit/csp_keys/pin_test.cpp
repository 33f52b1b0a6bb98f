// The PIN protocol.

#include "helper_process.hpp"
#include "keys/container.hpp"
#include "service.hpp"

#include <csignal>
#include <fstream>

namespace csp_keys {

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;
using klunortredi::csp::pinTryLimit;

class Pins : public ServiceTest {
protected:
    [[nodiscard]] std::string content(const std::string& file) const {
        return test_support::readFile(home_ / ("containers/c.80/" + file));
    }
    void write(const std::string& file, const std::string& text) const {
        std::ofstream(home_ / ("containers/c.80/" + file)) << text;
    }
    static DWORD tries(unsigned long hProv) { return provNumber(hProv, capi::PP_PIN_TRIES_REMAINING); }
    static BOOL newPin(unsigned long hProv, const char* pin) {
        return CryptSetProvParam(hProv, capi::PP_PIN_NEW, reinterpret_cast<const BYTE*>(pin), 0);
    }
    /// Tries to sign; for the refusal.
    static BOOL signs(unsigned long hProv, DWORD keySpec = capi::AT_KEYEXCHANGE) {
        const Hash hash(hProv, capi::CALG_GR3411_2012_256);
        Bytes signature(64);
        DWORD size = 64;
        return CryptSignHashW(hash.get(), keySpec, nullptr, 0, signature.data(), &size);
    }
};

/// Makes a key pair; for the refusal.
BOOL generates(unsigned long hProv, DWORD keySpec) {
    unsigned long key = 0;
    const BOOL made = CryptGenKey(hProv, keySpec, 0, &key);
    if (made != 0) {
        CryptDestroyKey(key);
    }
    return made;
}

#if defined(KLUNORTREDI_SANITIZED)
constexpr bool addressSpaceIsReserved = true;
#else
constexpr bool addressSpaceIsReserved = false;
#endif

} // namespace

TEST_F(Pins, PresentingAndVerifyingAWrongOneCountsOnce) {
    makeContainer(gost, L"c", "1234");
    const Context context(gost, L"c", 0);
    ASSERT_TRUE(setPin(context.get(), "wrong", capi::PIN_PRESENT));
    EXPECT_EQ(tries(context.get()), pinTryLimit);
    EXPECT_TRUE(refused(setPin(context.get(), "wrong", capi::PIN_VERIFY), capi::SCARD_W_WRONG_CHV));
    EXPECT_EQ(tries(context.get()), pinTryLimit - 1);
    EXPECT_TRUE(refused(signs(context.get()), capi::SCARD_W_CARD_NOT_AUTHENTICATED));
    EXPECT_EQ(tries(context.get()), pinTryLimit - 1);
}

TEST_F(Pins, RightOneUnlocksTheContextAndSetsTheCountBack) {
    makeContainer(gost, L"c", "пароль");
    const Context context(gost, L"c", 0);
    EXPECT_TRUE(refused(signs(context.get()), capi::SCARD_W_CARD_NOT_AUTHENTICATED));
    EXPECT_TRUE(refused(setPin(context.get(), "wrong", capi::PIN_VERIFY), capi::SCARD_W_WRONG_CHV));
    ASSERT_TRUE(setPin(context.get(), "пароль", capi::PIN_PRESENT));
    ASSERT_TRUE(setPin(context.get(), "пароль", capi::PIN_VERIFY));
    EXPECT_EQ(tries(context.get()), pinTryLimit);
    EXPECT_TRUE(signs(context.get()));
    const Context other(gost, L"c", 0);
    EXPECT_TRUE(refused(signs(other.get()), capi::SCARD_W_CARD_NOT_AUTHENTICATED)) << "each context logs in";
}

TEST_F(Pins, PresentedOneIsJudgedBySigning) {
    makeContainer(gost, L"c", "1234");
    const Context context(gost, L"c", 0);
    ASSERT_TRUE(setPin(context.get(), "wrong", capi::PIN_PRESENT));
    EXPECT_TRUE(refused(signs(context.get()), capi::SCARD_W_WRONG_CHV));
    EXPECT_TRUE(refused(signs(context.get()), capi::SCARD_W_CARD_NOT_AUTHENTICATED)) << "a wrong one is forgotten";
    EXPECT_EQ(tries(context.get()), pinTryLimit - 1);
    ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_PRESENT));
    EXPECT_TRUE(refused(signs(context.get(), capi::AT_SIGNATURE), capi::NTE_NO_KEY));
    EXPECT_EQ(tries(context.get()), pinTryLimit - 1) << "not judged for a key that is not there";
    EXPECT_TRUE(signs(context.get()));
    EXPECT_EQ(tries(context.get()), pinTryLimit);
}

TEST_F(Pins, ContainerWithoutOneOpensByItself) {
    makeContainer(gost, L"c", "");
    const Context context(gost, L"c", 0);
    EXPECT_TRUE(signs(context.get()));
    EXPECT_TRUE(setPin(context.get(), "", capi::PIN_VERIFY));
    EXPECT_TRUE(refused(setPin(context.get(), "guess", capi::PIN_VERIFY), capi::SCARD_W_WRONG_CHV));
    EXPECT_EQ(tries(context.get()), pinTryLimit) << "there is nothing to guess";
}

TEST_F(Pins, AttemptsOfOtherProcessesCount) {
    makeContainer(gost, L"c", "1234");
    const Context context(gost, L"c", 0);
    EXPECT_EQ(helper({"verify", "c", "wrong"}).out, std::to_string(capi::SCARD_W_WRONG_CHV) + '\n');
    EXPECT_EQ(tries(context.get()), pinTryLimit - 1);
    EXPECT_EQ(helper({"verify", "c", "1234"}).out, "0\n");
    EXPECT_EQ(tries(context.get()), pinTryLimit);
}

TEST_F(Pins, KilledWhileJudgingTheAttemptIsCountedApart) {
    makeContainer(gost, L"c", "1234");
    EXPECT_EQ(helper({"die-judging", "c", "wrong"}).signal, SIGKILL);
    EXPECT_EQ(content("tries"), "0 1\n");
    const Context context(gost, L"c", 0);
    EXPECT_EQ(tries(context.get()), pinTryLimit) << "only a judged PIN counts";
    EXPECT_TRUE(refused(setPin(context.get(), "wrong", capi::PIN_VERIFY), capi::SCARD_W_WRONG_CHV));
    EXPECT_EQ(content("tries"), "1 1\n");
    ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_VERIFY));
    EXPECT_EQ(content("tries"), "0 0\n");
}

TEST_F(Pins, UnjudgedAttemptsHaveALimitOfTheirOwn) {
    makeContainer(gost, L"c", "1234");
    write("tries", "0 99\n");
    const Context context(gost, L"c", 0);
    ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_VERIFY)) << "more than ten kills do not lock it";
    write("tries", "0 100\n");
    EXPECT_EQ(tries(context.get()), 0U);
    EXPECT_TRUE(refused(setPin(context.get(), "1234", capi::PIN_VERIFY), capi::SCARD_W_CHV_BLOCKED));
    klunortredi::csp::Container::open({"c", gost}).resetTries();
    EXPECT_TRUE(setPin(context.get(), "1234", capi::PIN_VERIFY));
    write("tries", "3\n");
    EXPECT_EQ(tries(context.get()), pinTryLimit - 3) << "a count without the second number";
}

TEST_F(Pins, ChangeThatUnlockedBeforeAnotherOneDoesNotUndoIt) {
    makeContainer(gost, L"c", "old");
    const Context context(gost, L"c", 0);
    ASSERT_TRUE(setPin(context.get(), "old", capi::PIN_VERIFY));
    EXPECT_EQ(helper({"change", "c", "old", "new"}).out, "0\n");
    EXPECT_TRUE(refused(newPin(context.get(), "mine"), capi::NTE_BAD_KEY_STATE));
    EXPECT_TRUE(refused(newPin(context.get(), "mine"), capi::SCARD_W_CARD_NOT_AUTHENTICATED));
    ASSERT_TRUE(setPin(context.get(), "new", capi::PIN_VERIFY));
    EXPECT_TRUE(newPin(context.get(), "mine"));
    EXPECT_TRUE(newPin(context.get(), "next")) << "one's own change is known";
}

TEST_F(Pins, ContainerLocksAfterTheLimitAlsoForTheRightOne) {
    makeContainer(gost, L"c", "1234");
    const Context context(gost, L"c", 0);
    for (DWORD left = pinTryLimit; left > 0; --left) {
        EXPECT_EQ(tries(context.get()), left);
        EXPECT_TRUE(refused(setPin(context.get(), "wrong", capi::PIN_VERIFY), capi::SCARD_W_WRONG_CHV));
    }
    EXPECT_EQ(tries(context.get()), 0U);
    EXPECT_TRUE(refused(setPin(context.get(), "1234", capi::PIN_VERIFY), capi::SCARD_W_CHV_BLOCKED));
    EXPECT_TRUE(refused(setPin(context.get(), "1234", capi::PIN_PRESENT), capi::SCARD_W_CHV_BLOCKED));
    EXPECT_TRUE(refused(signs(context.get()), capi::SCARD_W_CARD_NOT_AUTHENTICATED));
    EXPECT_EQ(helper({"verify", "c", "1234"}).out, std::to_string(capi::SCARD_W_CHV_BLOCKED) + '\n');
    PublicKeyInfo(context.get(), capi::AT_KEYEXCHANGE); // the public half needs no PIN

    klunortredi::csp::Container::open({"c", gost}).resetTries();
    EXPECT_TRUE(setPin(context.get(), "1234", capi::PIN_VERIFY));
}

TEST_F(Pins, ChangeTakesAnUnlockedContext) {
    makeContainer(gost, L"c", "old");
    const Context context(gost, L"c", 0);
    EXPECT_TRUE(refused(newPin(context.get(), "new"), capi::SCARD_W_CARD_NOT_AUTHENTICATED));
    ASSERT_TRUE(setPin(context.get(), "old", capi::PIN_VERIFY));
    ASSERT_TRUE(newPin(context.get(), "new"));
    EXPECT_TRUE(signs(context.get()));
    EXPECT_EQ(helper({"verify", "c", "old"}).out, std::to_string(capi::SCARD_W_WRONG_CHV) + '\n');
    EXPECT_EQ(helper({"verify", "c", "new"}).out, "0\n");
}

TEST_F(Pins, ChangeReachesEveryKeyPair) {
    makeContainer(gost, L"c", "old");
    const Context context(gost, L"c", 0);
    ASSERT_TRUE(setPin(context.get(), "old", capi::PIN_VERIFY));
    ASSERT_TRUE(generates(context.get(), capi::AT_SIGNATURE));
    ASSERT_TRUE(newPin(context.get(), "new"));
    const Context again(gost, L"c", 0);
    ASSERT_TRUE(setPin(again.get(), "new", capi::PIN_VERIFY));
    EXPECT_TRUE(signs(again.get(), capi::AT_KEYEXCHANGE));
    EXPECT_TRUE(signs(again.get(), capi::AT_SIGNATURE));
}

TEST_F(Pins, ContextOpenedBeforeAChangeElsewhereTakesTheNewOne) {
    makeContainer(gost, L"c", "old");
    const Context context(gost, L"c", 0);
    EXPECT_EQ(helper({"change", "c", "old", "new"}).out, "0\n");
    EXPECT_TRUE(refused(setPin(context.get(), "old", capi::PIN_VERIFY), capi::SCARD_W_WRONG_CHV));
    EXPECT_TRUE(setPin(context.get(), "new", capi::PIN_VERIFY));
}

TEST_F(Pins, NewContainerTakesItsOneBeforeOrAfterTheKey) {
    makeContainer(gost, L"before", "1234");
    {
        const Context context(gost, L"after", capi::CRYPT_NEWKEYSET);
        ASSERT_TRUE(generates(context.get(), capi::AT_KEYEXCHANGE));
        ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_SET_NEW));
        EXPECT_TRUE(signs(context.get())) << "who makes a container is logged in";
    }
    for (const char* name : {"before", "after"}) {
        EXPECT_EQ(helper({"verify", name, "1234"}).out, "0\n");
        EXPECT_EQ(helper({"verify", name, ""}).out, std::to_string(capi::SCARD_W_WRONG_CHV) + '\n');
    }
    const Context context(gost, L"after", 0);
    EXPECT_TRUE(refused(setPin(context.get(), "x", capi::PIN_SET_NEW), capi::NTE_BAD_FLAGS)) << "not new any more";
}

TEST_F(Pins, NewContainersOneIsNotReplacedByOneThatIsOnlyPresented) {
    {
        const Context context(gost, L"c", capi::CRYPT_NEWKEYSET);
        ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_SET_NEW));
        EXPECT_TRUE(setPin(context.get(), "1234", capi::PIN_VERIFY));
        EXPECT_TRUE(setPin(context.get(), "1234", capi::PIN_PRESENT));
        EXPECT_TRUE(refused(setPin(context.get(), "9999", capi::PIN_VERIFY), capi::SCARD_W_WRONG_CHV));
        EXPECT_TRUE(refused(setPin(context.get(), "9999", capi::PIN_PRESENT), capi::SCARD_W_WRONG_CHV));
        EXPECT_TRUE(generates(context.get(), capi::AT_KEYEXCHANGE));
    }
    EXPECT_EQ(helper({"verify", "c", "1234"}).out, "0\n");
}

TEST_F(Pins, SecondKeyPairOfANewContainerComesUnderTheSameOne) {
    {
        const Context context(gost, L"c", capi::CRYPT_NEWKEYSET);
        ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_SET_NEW));
        ASSERT_TRUE(generates(context.get(), capi::AT_KEYEXCHANGE));
        EXPECT_TRUE(refused(setPin(context.get(), "9999", capi::PIN_VERIFY), capi::SCARD_W_WRONG_CHV));
        EXPECT_TRUE(refused(generates(context.get(), capi::AT_SIGNATURE), capi::SCARD_W_CARD_NOT_AUTHENTICATED));
        ASSERT_TRUE(setPin(context.get(), "9999", capi::PIN_PRESENT));
        EXPECT_TRUE(refused(generates(context.get(), capi::AT_SIGNATURE), capi::SCARD_W_WRONG_CHV));
        ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_PRESENT));
        EXPECT_TRUE(generates(context.get(), capi::AT_SIGNATURE));
    }
    const Context context(gost, L"c", 0);
    ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_VERIFY));
    EXPECT_TRUE(signs(context.get(), capi::AT_KEYEXCHANGE));
    EXPECT_TRUE(signs(context.get(), capi::AT_SIGNATURE));
}

TEST_F(Pins, OneThatWasChangedElsewhereAddsNoKeyPair) {
    makeContainer(gost, L"c", "old");
    const Context context(gost, L"c", 0);
    ASSERT_TRUE(setPin(context.get(), "old", capi::PIN_VERIFY));
    EXPECT_EQ(helper({"change", "c", "old", "new"}).out, "0\n");
    EXPECT_TRUE(refused(generates(context.get(), capi::AT_SIGNATURE), capi::SCARD_W_WRONG_CHV));
    EXPECT_EQ(helper({"verify", "c", "new"}).out, "0\n");
}

TEST_F(Pins, OfADeletedContainerIsNotThatOfAnotherOneOfItsName) {
    makeContainer(gost, L"c", "old");
    const Context context(gost, L"c", 0);
    ASSERT_TRUE(setPin(context.get(), "old", capi::PIN_VERIFY));
    unsigned long none = 0;
    ASSERT_TRUE(CryptAcquireContextW(&none, L"c", nullptr, gost, capi::CRYPT_DELETEKEYSET));
    makeContainer(gost, L"c", "new");
    EXPECT_TRUE(refused(generates(context.get(), capi::AT_SIGNATURE), capi::NTE_BAD_KEYSET));
    EXPECT_TRUE(refused(setPin(context.get(), "old", capi::PIN_VERIFY), capi::NTE_BAD_KEYSET));
    EXPECT_EQ(provNumber(Context(gost, L"c", 0).get(), capi::PP_PIN_TRIES_REMAINING), pinTryLimit);
    EXPECT_EQ(helper({"verify", "c", "new"}).out, "0\n");
}

TEST_F(Pins, NewContainerTakesItsOneAlsoAfterOthersHaveSeenIt) {
    const Context context(gost, L"c", capi::CRYPT_NEWKEYSET);
    ASSERT_TRUE(generates(context.get(), capi::AT_KEYEXCHANGE));
    ASSERT_EQ(containerNames(gost, 0), std::vector<std::string>{"c"});
    EXPECT_TRUE(setPin(context.get(), "1234", capi::PIN_SET_NEW));
    EXPECT_EQ(helper({"verify", "c", "1234"}).out, "0\n");
    EXPECT_EQ(helper({"verify", "c", ""}).out, std::to_string(capi::SCARD_W_WRONG_CHV) + '\n');
}

TEST_F(Pins, RightOneIsNotCountedWhereThereIsNoMemoryToJudgeIt) {
    if (addressSpaceIsReserved) {
        GTEST_SKIP() << "the sanitizer takes more address space than the limit leaves";
    }
    makeContainer(gost, L"c", "1234");
    EXPECT_EQ(helper({"verify-poor", "c", "1234"}).out, std::to_string(capi::ERROR_NOT_ENOUGH_MEMORY) + '\n');
    EXPECT_EQ(provNumber(Context(gost, L"c", 0).get(), capi::PP_PIN_TRIES_REMAINING), pinTryLimit);
}

TEST_F(Pins, EveryProviderKeepsKeysUnderOne) {
    const std::vector<std::pair<DWORD, ALG_ID>> types{{80, capi::CALG_GR3411_2012_256},
                                                      {81, capi::CALG_GR3411_2012_512},
                                                      {75, capi::CALG_GR3411},
                                                      {24, capi::CALG_SHA_256}};
    for (const auto& [type, algorithm] : types) {
        makeContainer(type, L"c", "1234");
        const Context context(type, L"c", 0);
        ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_VERIFY)) << type;
        const Hash hash(context.get(), algorithm);
        EXPECT_GT(sign(hash.get(), capi::AT_KEYEXCHANGE).size(), 63U);
    }
}

TEST_F(Pins, OverlongOneIsRefused) {
    makeContainer(gost, L"c", "1234");
    const Context context(gost, L"c", 0);
    EXPECT_TRUE(refused(setPin(context.get(), std::string(256, '1').c_str(), capi::PIN_VERIFY), capi::NTE_BAD_LEN));
    EXPECT_TRUE(
        refused(setPin(context.get(), std::string(255, '1').c_str(), capi::PIN_VERIFY), capi::SCARD_W_WRONG_CHV));
    EXPECT_TRUE(refused(setPin(context.get(), "1", 2), capi::NTE_BAD_FLAGS));
    EXPECT_EQ(tries(context.get()), pinTryLimit - 1);
}

} // namespace csp_keys
