#include "signatures_fixture.hpp"

#include "crypto/wincrypt/signature_validator.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "service_double/fault_walk.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <sstream>

namespace wincrypt_signatures {
namespace {

using orvik::plugin::IDataHandler;
using orvik::plugin::wincrypt::GetLastErrorEx;
using testing::ElementsAre;
using testing::IsEmpty;
namespace tools = orvik::plugin::wincrypt::tools;
namespace binary = orvik::plugin::wincrypt::binary;
using Params = orvik::plugin::crypto::SignatureFactory::Validator::Params;

class VerifyTest : public SignaturesFixture {
protected:
    VerifyTest() { arrangeMessage(); }

    static void arrangeMessage() {
        service().message.certificates = {der(plainCertificate), der(signerCertificate)};
        service().message.signers = {der(signerCertificate)};
    }
    static bool verify(const std::string& signature = "signature") {
        std::istringstream in(signature);
        return tools::verify(in, boost::none);
    }
    static bool verifyDetached(const std::string& content) {
        std::istringstream in("signature");
        std::istringstream data(content);
        return tools::verify(in, boost::optional<std::istream&>(data));
    }
    static bool update(IDataHandler& validator, const std::string& data) {
        return validator.update(reinterpret_cast<const unsigned char*>(data.data()), data.size());
    }
};

TEST_F(VerifyTest, ChecksTheFirstSignerAgainstItsCertificate) {
    EXPECT_TRUE(verify());
    EXPECT_THAT(functions(),
                ElementsAre("CryptMsgOpenToDecode", "CryptMsgUpdate", "CryptMsgGetParam", "CertOpenStore",
                            "CryptMsgGetParam", "CryptMsgGetParam", "CertGetSubjectCertificateFromStore",
                            "CertCloseStore", "CryptMsgControl", "CertFreeCertificateContext", "CryptMsgClose"));
    EXPECT_EQ(service().trace().front(), "CryptMsgOpenToDecode(0x10001, 0, 0, 0, null, pointer)");
    EXPECT_THAT(logTexts(Severity::error), IsEmpty());
}

TEST_F(VerifyTest, FeedsDetachedContentBehindTheSignature) {
    EXPECT_TRUE(verifyDetached("content"));
    EXPECT_EQ(service().trace().front(), "CryptMsgOpenToDecode(0x10001, 4, 0, 0, null, pointer)");
    EXPECT_EQ(service().count("CryptMsgUpdate"), 2U);
}

TEST_F(VerifyTest, TakesTheDecodedContentAndKeepsNone) {
    service().on.CryptMsgUpdate = [](void* message, const BYTE* data, DWORD size, BOOL final) {
        return Defaults::CryptMsgUpdate(message, data, size, final);
    };
    service().on.CryptMsgOpenToDecode = [](DWORD encoding, DWORD flags, DWORD type, unsigned long provider,
                                           CERT_INFO* recipient, CMSG_STREAM_INFO* stream) {
        EXPECT_EQ(stream->cbContent, 0xFFFFFFFFU);
        std::string piece(100000, 'x');
        EXPECT_EQ(stream->pfnStreamOutput(stream->pvArg, reinterpret_cast<BYTE*>(piece.data()), 100000, 0), 1);
        EXPECT_EQ(stream->pfnStreamOutput(stream->pvArg, nullptr, 0, 1), 1);
        return Defaults::CryptMsgOpenToDecode(encoding, flags, type, provider, recipient, stream);
    };
    EXPECT_TRUE(verify());
}

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
    EXPECT_EQ(logTexts(Severity::error).size(), 1U);
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

TEST_F(VerifyTest, ValidatorKeepsTheVerdictUntilItIsFetched) {
    binary::Validator validator;
    std::vector<unsigned char> out(3);
    EXPECT_FALSE(validator.finalize(out));
    EXPECT_THAT(out, IsEmpty());
    validator.initialize(Params());
    EXPECT_FALSE(validator.update(nullptr, 0));
    std::size_t consumed = 77;
    const unsigned char octet = 0x30;
    EXPECT_TRUE(validator.update(&octet, 1, &consumed));
    EXPECT_EQ(consumed, 77U);
    EXPECT_TRUE(validator.update(nullptr, 0));
    EXPECT_TRUE(validator.finalize(out));
    EXPECT_FALSE(validator.finalize(out));
}

TEST_F(VerifyTest, ValidatorWithoutUpdateSaysNo) {
    binary::Validator validator;
    validator.initialize(Params());
    std::vector<unsigned char> out;
    EXPECT_FALSE(validator.finalize(out));
}

TEST_F(VerifyTest, ValidatorsLastCheckDecides) {
    binary::Validator validator;
    validator.initialize(Params());
    EXPECT_TRUE(update(validator, "first"));
    service().message.valid = false;
    EXPECT_FALSE(update(validator, "second"));
    std::vector<unsigned char> out;
    EXPECT_FALSE(validator.finalize(out));
}

TEST_F(VerifyTest, ValidatorChecksDetachedContent) {
    Params params;
    params.content = boost::make_shared<std::istringstream>("content");
    binary::Validator validator;
    EXPECT_TRUE(validator.initialize(params));
    EXPECT_TRUE(update(validator, "signature"));
    EXPECT_EQ(service().count("CryptMsgUpdate"), 2U);
    EXPECT_THROW(validator.initialize(IDataHandler::Params()), std::bad_cast);
}

TEST_F(VerifyTest, XmlWithoutSignatureOrThatIsNoXmlSaysNo) {
    orvik::plugin::wincrypt::xmldsig::Validator validator;
    EXPECT_THROW(validator.initialize(IDataHandler::Params()), std::bad_cast);
    EXPECT_TRUE(validator.initialize(Params()));
    EXPECT_FALSE(update(validator, "<document/>"));
    EXPECT_FALSE(update(validator, "no xml"));
    EXPECT_FALSE(validator.update(nullptr, 0));
    std::vector<unsigned char> out(1);
    EXPECT_FALSE(validator.finalize(out));
    EXPECT_THAT(out, IsEmpty());
}

TEST_F(VerifyTest, EveryFailureIsANoWithItsCode) {
    service_double::FaultWalk walk;
    walk.name = "verify";
    walk.arrange = arrangeMessage;
    bool valid = false;
    walk.scenario = [&] { valid = verifyDetached("content"); };
    walk.expect = [&](const service_double::FaultOutcome& outcome) {
        EXPECT_FALSE(outcome.thrown) << outcome.call;
        const bool release = outcome.function == "CryptMsgClose" || outcome.function == "CertCloseStore" ||
                             outcome.function == "CertFreeCertificateContext";
        EXPECT_EQ(valid, release) << outcome.call;
        if (!valid && outcome.function != "CertGetSubjectCertificateFromStore") {
            EXPECT_EQ(GetLastErrorEx(), outcome.code) << outcome.call;
        }
    };
    EXPECT_GT(service_double::walkFaults(walk), 9U);
}

} // namespace
} // namespace wincrypt_signatures
