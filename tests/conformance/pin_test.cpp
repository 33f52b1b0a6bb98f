// PINs, on containers that the suite makes itself.

#include "providers.hpp"

namespace conformance {

namespace {

using namespace capi;

class PinOf : public ConformanceTest, public testing::WithParamInterface<ProviderKind> {
protected:
    PinOf() : made_(GetParam().type, {AT_KEYEXCHANGE}) { made_.close(); }
    /// Signs with the container's key pair, which wants the PIN.
    static bool sign(const Context& context) {
        Hash hash;
        must(api().CryptCreateHash(context.get(), GetParam().hash, 0, 0, hash.address()) != 0, "creating a hash");
        DWORD size = 0;
        must(api().CryptSignHashW(hash.get(), AT_KEYEXCHANGE, nullptr, 0, nullptr, &size) != 0, "signature size");
        Bytes signature(size);
        return api().CryptSignHashW(hash.get(), AT_KEYEXCHANGE, nullptr, 0, signature.data(), &size) != 0;
    }
    /// Verifies wrong PINs until the container is locked; gives how many it took.
    static int lock(const Context& context) {
        constexpr int patience = 64;
        for (int tries = 1; tries <= patience; ++tries) {
            if (setPin(context.get(), "wrong", PIN_VERIFY)) {
                return 0;
            }
            if (api().GetLastError() == SCARD_W_CHV_BLOCKED) {
                return tries;
            }
        }
        return 0;
    }
    ThrowAway made_;
};

constexpr DWORD unknownFlag = 0x1000;

} // namespace

TEST_P(PinOf, IsAskedForBeforeTheKeyIsUsed) {
    const Context context = made_.open();
    EXPECT_REFUSED(sign(context), SCARD_W_CARD_NOT_AUTHENTICATED, NTE_SILENT_CONTEXT);
}

TEST_P(PinOf, OpensTheKeyWhenPresented) {
    const Context context = made_.open();
    EXPECT_ACCEPTED(setPin(context.get(), made_.pin(), PIN_PRESENT));
    EXPECT_ACCEPTED(sign(context));
}

TEST_P(PinOf, OpensTheKeyWhenVerified) {
    const Context context = made_.open();
    EXPECT_ACCEPTED(setPin(context.get(), made_.pin(), PIN_PRESENT));
    EXPECT_ACCEPTED(setPin(context.get(), made_.pin(), PIN_VERIFY));
    EXPECT_ACCEPTED(sign(context));
}

TEST_P(PinOf, IsRefusedWhenWrong) {
    const Context context = made_.open();
    EXPECT_REFUSED(setPin(context.get(), "wrong", PIN_VERIFY), SCARD_W_WRONG_CHV);
    EXPECT_REFUSED(sign(context), SCARD_W_CARD_NOT_AUTHENTICATED, NTE_SILENT_CONTEXT);
    EXPECT_ACCEPTED(setPin(context.get(), made_.pin(), PIN_VERIFY));
    EXPECT_ACCEPTED(sign(context));
}

TEST_P(PinOf, OfOneContextDoesNotOpenAnother) {
    const Context one = made_.open();
    const Context other = made_.open();
    ASSERT_TRUE(setPin(one.get(), made_.pin(), PIN_VERIFY));
    EXPECT_REFUSED(sign(other), SCARD_W_CARD_NOT_AUTHENTICATED, NTE_SILENT_CONTEXT);
}

TEST_P(PinOf, LocksTheContainerAfterTooManyWrongOnesCountedAnewAfterARightOne) {
    const Context context = made_.open();
    const int tries = lock(context);
    EXPECT_GT(tries, 1) << "one slip of the finger must not lock";
    EXPECT_REFUSED(setPin(context.get(), made_.pin(), PIN_VERIFY), SCARD_W_CHV_BLOCKED);
    EXPECT_REFUSED(setPin(made_.open().get(), made_.pin(), PIN_VERIFY), SCARD_W_CHV_BLOCKED);

    const ThrowAway second(GetParam().type, {AT_KEYEXCHANGE});
    const Context other = second.open();
    EXPECT_REFUSED(setPin(other.get(), "wrong", PIN_VERIFY), SCARD_W_WRONG_CHV);
    ASSERT_TRUE(setPin(other.get(), second.pin(), PIN_VERIFY));
    EXPECT_EQ(lock(other), tries);
}

TEST_P(PinOf, RefusesUnknownFlags) {
    const Context context = made_.open();
    EXPECT_REFUSED(setPin(context.get(), made_.pin(), unknownFlag), NTE_BAD_FLAGS);
}

TEST_P(PinOf, IsNeedlessForWhatIsPublic) {
    const Context context = made_.open();
    EXPECT_FALSE(publicKeyOf(context.get(), AT_KEYEXCHANGE).empty());
    Key key;
    EXPECT_ACCEPTED(api().CryptGetUserKey(context.get(), AT_KEYEXCHANGE, key.address()));
}

INSTANTIATE_TEST_SUITE_P(Providers, PinOf, testing::ValuesIn(offeredKinds()), nameOfType<ProviderKind>);

} // namespace conformance
