// What the check of a message says, and why.

#include "verify_fixture.hpp"

#include "crypto/wincrypt/wincrypt_handler.hpp"

namespace wincrypt_signatures {
namespace {

using orvik::plugin::wincrypt::GetLastErrorEx;
using testing::ElementsAre;
using testing::IsEmpty;
namespace tools = orvik::plugin::wincrypt::tools;

using VerifyTest = VerifyFixture;

TEST_F(VerifyTest, InvalidSignatureIsLoggedWithTheServicesText) {
    service().message.valid = false;
    service().messages[capi::NTE_BAD_SIGNATURE] = "Bad signature.\r\n";
    EXPECT_FALSE(verifyDetached("other content"));
    EXPECT_EQ(GetLastErrorEx(), capi::NTE_BAD_SIGNATURE);
    EXPECT_THAT(logTexts(Severity::error), ElementsAre("wincrypt: verify failed: Bad signature."));
}

TEST_F(VerifyTest, MessageWithoutCertificatesIsRefusedAndLogged) {
    service().message.certificates.clear();
    EXPECT_FALSE(verify());
    const CryptoException missing(CryptoException::Code::noCertificate);
    EXPECT_EQ(missing.code().value(), 30003);
    EXPECT_THAT(logTexts(Severity::error), ElementsAre(std::string("wincrypt: verify failed: ") + missing.what()));
    EXPECT_EQ(GetLastErrorEx(), capi::CRYPT_E_NOT_FOUND);
    EXPECT_EQ(service().count("CertOpenStore"), 0U);
}

TEST_F(VerifyTest, SignerWhoseCertificateIsMissingIsRefusedWithoutRecord) {
    service().message.certificates = {der(plainCertificate)};
    EXPECT_FALSE(verify());
    EXPECT_THAT(logTexts(Severity::error), IsEmpty());
    EXPECT_EQ(GetLastErrorEx(), capi::CRYPT_E_NOT_FOUND);
    EXPECT_EQ(service().count("CryptMsgControl"), 0U);
}

TEST_F(VerifyTest, ReasonOutlivesTheClosingOfTheMessage) {
    service().on.CryptMsgClose = [](void* message) -> BOOL {
        Defaults::CryptMsgClose(message);
        return service_double::fail(1);
    };
    service().failFunction("CryptMsgUpdate", capi::CRYPT_E_ASN1_BADTAG);
    EXPECT_FALSE(verify("no message"));
    EXPECT_EQ(GetLastErrorEx(), capi::CRYPT_E_ASN1_BADTAG);
}

TEST_F(VerifyTest, NeverThrows) {
    service().on.CryptMsgControl = [](void*, DWORD, DWORD, const void*) -> BOOL { throw 1; };
    EXPECT_FALSE(verify());
    EXPECT_THAT(logTexts(Severity::error), IsEmpty());
    service().on.CryptMsgControl = [](void*, DWORD, DWORD, const void*) -> BOOL { throw std::runtime_error("odd"); };
    EXPECT_FALSE(verify());
    EXPECT_THAT(logTexts(Severity::error), ElementsAre("wincrypt: verify failed: odd"));
}

/// Octets, and then a failure of the device that they come from.
class BreakingBuffer : public std::streambuf {
public:
    explicit BreakingBuffer(std::string octets) : octets_(std::move(octets)) {
        setg(octets_.data(), octets_.data(), octets_.data() + octets_.size());
    }

protected:
    int_type underflow() override { throw std::runtime_error("cannot read the disk"); }

private:
    std::string octets_;
};

/// What a stream does where its buffer fails: keeps it for whoever asks, or throws it.
enum class OnFailure { keep, raise };

class BreakingStream : public BreakingBuffer, public std::istream {
public:
    explicit BreakingStream(const std::string& octets, OnFailure onFailure = OnFailure::keep)
        : BreakingBuffer(octets), std::istream(this) {
        if (onFailure == OnFailure::raise) {
            exceptions(std::ios::badbit);
        }
    }
};

TEST_F(VerifyTest, StreamThatCannotBeReadToItsEndIsNeverValid) {
    const std::string unreadable = "wincrypt: verify failed: ";
    for (const char* octets : {"", "the first part"}) {
        clearLog();
        BreakingStream signature(octets);
        EXPECT_FALSE(tools::verify(signature, boost::none)) << octets;
        std::istringstream whole("signature");
        BreakingStream content(octets);
        EXPECT_FALSE(tools::verify(whole, boost::optional<std::istream&>(content))) << octets;
        EXPECT_THAT(logTexts(Severity::error),
                    ElementsAre(testing::StartsWith(unreadable + "the signature cannot be read"),
                                testing::StartsWith(unreadable + "the content cannot be read")));
    }
}

TEST_F(VerifyTest, StreamThatThrowsIsNotValidAndLogged) {
    BreakingStream signature("part", OnFailure::raise);
    EXPECT_FALSE(tools::verify(signature, boost::none));
    EXPECT_THAT(logTexts(Severity::error), ElementsAre("wincrypt: verify failed: cannot read the disk"));
}

TEST_F(VerifyTest, SignersAreNotJudgedByAPartOfTheirContent) {
    std::istringstream whole("signature");
    BreakingStream content("the first part");
    EXPECT_THROW(tools::verifySigners(whole, boost::optional<std::istream&>(content), {}), std::ios_base::failure);
    BreakingStream signature("the first part");
    EXPECT_THROW(tools::verifySigners(signature, boost::none, {}), std::ios_base::failure);
    EXPECT_EQ(service().count("CryptMsgControl"), 0U);
}

TEST_F(VerifyTest, SignersCertificateComesOutOfTheMessage) {
    CMSG_STREAM_INFO stream{};
    void* message = orvik::plugin::wincrypt::CryptMsgOpenToDecode(0x10001, 0, 0, 0, nullptr, &stream);
    const auto found = tools::certificate(message);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->raw(), der(signerCertificate));
    service().failFunction("CertOpenStore", 5);
    EXPECT_EQ(thrownBy<SystemException>([&] { tools::certificate(message); }), (Thrown{5, "tools", "certificate", 0}));
    orvik::plugin::wincrypt::CryptMsgClose(message);
}

TEST_F(VerifyTest, DetachedSignatureWithoutItsContentIsLoggedWithTheServicesText) {
    service().on.CryptMsgControl = [](void*, DWORD, DWORD, const void*) -> BOOL {
        return service_double::fail(capi::CRYPT_E_STREAM_MSG_NOT_READY);
    };
    service().messages[capi::CRYPT_E_STREAM_MSG_NOT_READY] = "The stream is not ready.\r\n";
    EXPECT_FALSE(verify());
    EXPECT_EQ(GetLastErrorEx(), capi::CRYPT_E_STREAM_MSG_NOT_READY);
    EXPECT_THAT(log(), ElementsAre(service_double::LogRecord{Severity::error,
                                                             "wincrypt: verify failed: The stream is not ready."}));
}

// ---- no service installed

class WithoutService : public service_double::DoubleFixture {
protected:
    WithoutService() : DoubleFixture(service_double::Slots{}) {}
};

TEST_F(WithoutService, AMessageIsNotValidAndTheLogSaysWhy) {
    std::istringstream signature("signature");
    EXPECT_FALSE(tools::verify(signature, boost::none));
    const CryptoException none(CryptoException::Code::noProvider);
    EXPECT_EQ(none.code().value(), 30004);
    EXPECT_THAT(log(), testing::Contains(service_double::LogRecord{
                           Severity::error, std::string("wincrypt: verify failed: ") + none.what()}));
}

TEST_F(WithoutService, SignersAreNotJudged) {
    std::istringstream signature("signature");
    EXPECT_EQ(thrownBy<CryptoException>([&] { tools::verifySigners(signature, boost::none, {}); }).code, 30004);
}

} // namespace
} // namespace wincrypt_signatures
