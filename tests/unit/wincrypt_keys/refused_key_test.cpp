// A certificate's private key whose object cannot be made: which failures pass and which are replaced.
#include "cng_answers.hpp"

#include "unit/wincrypt_certificates/certificates_fixture.hpp"

#include "orvik/plugin/crypto/i_private_key.hpp"

#include <stdexcept>

namespace wincrypt_certificates {
namespace {

class RefusedKey : public CertificatesFixture {
protected:
    RefusedKey() { wincrypt_keys::forgetAnswers(); }
    ~RefusedKey() override { wincrypt_keys::forgetAnswers(); }

    template <class E>
    static void refuseWith(const E& failure) {
        wincrypt_keys::keyFailure = std::make_exception_ptr(failure);
    }
    template <class E>
    Thrown thrownByTheKey() {
        const auto signer = linked();
        return thrownBy<E>([&] { static_cast<void>(signer->privateKey()); });
    }
};

TEST_F(RefusedKey, OfTheUsersChoicePassesAsItComes) {
    const orvik::plugin::exception::Location place{"somewhere", "else", 7};
    try {
        raise(ApplicationException(ApplicationException::Code::cancelled), place);
    } catch (const ApplicationException& e) {
        refuseWith(e);
    }
    EXPECT_EQ(thrownByTheKey<ApplicationException>(), (Thrown{20003, "somewhere", "else", 7}));
    try {
        raise(CryptoException(CryptoException::Code::authorizationRefused), place);
    } catch (const CryptoException& e) {
        refuseWith(e);
    }
    EXPECT_EQ(thrownByTheKey<CryptoException>(), (Thrown{30053, "somewhere", "else", 7}));
    EXPECT_THAT(logTexts(Severity::warning), testing::IsEmpty());
}

TEST_F(RefusedKey, OfAnotherFrameworkFailureIsReplacedAndLogged) {
    const Thrown replaced{30001, "certificate", "privateKey", 0};
    refuseWith(SystemException(5));
    service().messages[5] = "Access is denied.";
    EXPECT_EQ(thrownByTheKey<CryptoException>(), replaced);
    EXPECT_THAT(logTexts(Severity::warning), testing::ElementsAre("wincrypt: privateKey: Access is denied."));
    for (const int number : {20006, 30004, 30047}) {
        refuseWith(CryptoException(static_cast<CryptoException::Code>(number)));
        EXPECT_EQ(thrownByTheKey<CryptoException>(), replaced) << number;
    }
    EXPECT_EQ(logTexts(Severity::warning).size(), 4U);
}

TEST_F(RefusedKey, OfNoFrameworkFailurePasses) {
    refuseWith(std::runtime_error("other"));
    const auto signer = linked();
    EXPECT_THROW(static_cast<void>(signer->privateKey()), std::runtime_error);
    EXPECT_THAT(logTexts(Severity::warning), testing::IsEmpty());
}

} // namespace
} // namespace wincrypt_certificates
