// Time-stamps on CMS signatures: what is asked of the service, and what becomes of a response.

#include "timestamp_fixture.hpp"

#include "orvik/plugin/hex.hpp"

#include <boost/date_time/gregorian/gregorian_types.hpp>

namespace wincrypt_signatures {
namespace {

using orvik::plugin::wincrypt::HCRYPTPROV;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
namespace tools = orvik::plugin::wincrypt::tools;
using Content = tools::TspResponse::Content;

/// SHA-256 of "value": what the double gives for every algorithm but SHA-1.
const std::string imprintOfValue = // NOLINT(cert-err58-cpp)
    orvik::plugin::hex::decode("cd42404d52ad55ccfa9aca4adc828aa5800ad9d385a0671fbcbf724118320619");

class TimestampTools : public TimestampFixture {
protected:
    TimestampTools() {
        script_.imprint = imprintOfValue;
        service().clearCalls();
    }

    std::string makeRequest(const std::string& nonce = "nonce", unsigned flags = 0) {
        return tools::makeTspRequest(context_, "signature", nonce, flags);
    }
    tools::TspResponse parse() { return tools::parseTspResponse(context_, "response"); }
    void validate(const std::string& imprint = imprintOfValue) {
        tools::validateTspResponse(parse(), context_, imprint);
    }
    Thrown refusal(const std::string& imprint = imprintOfValue) {
        return thrownBy<ApplicationException>([&] { validate(imprint); });
    }

    void TearDown() override {
        owner_.reset(); // before the books are looked at
        TimestampFixture::TearDown();
    }

private:
    std::optional<HCRYPTPROV> owner_{std::in_place, provider(), nullptr};

protected:
    const HCRYPTPROV& context_ = *owner_; // NOLINT(cppcoreguidelines-non-private-member-variables-in-classes)
};

// ---- the request

TEST_F(TimestampTools, RequestCoversTheSignatureValueOfTheFirstSigner) {
    service().message.signers = {der(signerCertificate), der(plainCertificate)};
    EXPECT_EQ(makeRequest(), "request");
    ASSERT_TRUE(request_);
    EXPECT_EQ(request_->version, 1U);
    EXPECT_EQ(request_->algorithm, streebog);
    EXPECT_EQ(request_->parameters, 0U);
    EXPECT_EQ(request_->imprint, imprintOfValue);
    EXPECT_FALSE(request_->policy);
    EXPECT_EQ(request_->certificate, 1) << "the authority's certificate is asked for";
    EXPECT_EQ(request_->extensions, 0U);
}

TEST_F(TimestampTools, RequestTakesTheNonceUnchangedAndMakesNone) {
    for (const std::string& nonce : {std::string("\x80\0\xFF", 3), std::string(), std::string("n")}) {
        makeRequest(nonce);
        EXPECT_EQ(request_->nonce, nonce);
    }
    EXPECT_EQ(service().count("CryptGenRandom"), 0U);
}

TEST_F(TimestampTools, RequestAsksTheServiceInThisOrder) {
    makeRequest("nonce", capi::CMSG_DETACHED_FLAG);
    EXPECT_THAT(
        service().trace(),
        ElementsAre("CryptMsgOpenToDecode(0x10001, 4, 0, context1, null, null)",
                    "CryptMsgUpdate(message1, pointer, 9, 1)", "CryptMsgGetParam(message1, 8, 0, null, &0)",
                    "CryptMsgGetParam(message1, 8, 0, pointer, &42)", "CryptMsgGetParam(message1, 27, 0, null, &0)",
                    "CryptMsgGetParam(message1, 27, 0, pointer, &5)", "CryptContextAddRef(context1, null, 0)",
                    testing::StartsWith("CryptFindOIDInfo(1, "), testing::StartsWith("CryptCreateHash(context1, "),
                    "CryptHashData(hash1, pointer, 5, 0)", "CryptGetHashParam(hash1, 2, null, &0, 0)",
                    "CryptGetHashParam(hash1, 2, pointer, &32, 0)", "CryptDestroyHash(hash1)",
                    "CryptReleaseContext(context1, 0)", testing::StartsWith("CryptEncodeObject("),
                    testing::StartsWith("CryptEncodeObject("), "CryptMsgClose(message1)"));
    EXPECT_THAT(encodings_, ElementsAre(Encoding{0x10001, "78"}));
}

// ---- the response

TEST_F(TimestampTools, ResponseGivesStatusTokenCertificateImprintAndTime) {
    script_.status = 1;
    const auto response = parse();
    EXPECT_EQ(response.status, 1U);
    ASSERT_TRUE(response.content);
    EXPECT_EQ(response.content->token, "token");
    EXPECT_EQ(response.content->certificate, der(signerCertificate)) << "the first one";
    EXPECT_EQ(response.content->messageImprint, imprintOfValue);
    EXPECT_EQ(response.content->time, boost::posix_time::ptime(boost::gregorian::date(1970, 1, 1)));
}

TEST_F(TimestampTools, ResponseAsksTheServiceInThisOrder) {
    parse();
    EXPECT_THAT(functions(),
                ElementsAre("CryptDecodeObject", "CryptDecodeObject", "CryptMsgOpenToDecode", "CryptMsgUpdate",
                            "CryptMsgGetParam", "CryptMsgGetParam", "CryptMsgGetParam", "CryptMsgGetParam",
                            "CryptDecodeObject", "CryptDecodeObject", "CryptMsgClose"));
    const auto trace = service().trace();
    EXPECT_THAT(trace, Contains("CryptMsgOpenToDecode(0x10001, 0, 0, context1, null, null)"));
    EXPECT_THAT(trace, Contains("CryptMsgUpdate(message1, pointer, 5, 1)"));
    EXPECT_THAT(trace, Contains("CryptMsgGetParam(message1, 12, 0, null, &0)"));
    EXPECT_THAT(trace, Contains("CryptMsgGetParam(message1, 2, 0, null, &0)"));
}

TEST_F(TimestampTools, ResponseWithoutTokenHasNoContentAndOpensNoMessage) {
    script_.token.clear();
    EXPECT_FALSE(parse().content);
    EXPECT_THAT(functions(), ElementsAre("CryptDecodeObject", "CryptDecodeObject"));
}

TEST_F(TimestampTools, ResponseThatCannotBeDecodedIsAFailureOfTheService) {
    service().on.CryptDecodeObject = [](DWORD, const char*, const BYTE*, DWORD, DWORD, void*, DWORD*) -> BOOL {
        return service_double::fail(capi::CRYPT_E_ASN1_CORRUPT);
    };
    EXPECT_EQ(thrownBy<SystemException>([&] { parse(); }),
              (Thrown{code(capi::CRYPT_E_ASN1_CORRUPT), "tools", "parseTspResponse"}));
}

// ---- what is acceptable

TEST_F(TimestampTools, GrantedAndGrantedWithModificationsAreAccepted) {
    for (const unsigned status : {0U, 1U}) {
        script_.status = status;
        EXPECT_NO_THROW(validate());
    }
}

TEST_F(TimestampTools, EveryOtherStatusIsRefusedEvenWithAToken) {
    for (const unsigned status : {2U, 3U, 4U, 5U, 6U, 0x80000000U, 0xFFFFFFFFU}) {
        script_.status = status;
        EXPECT_EQ(refusal(), (Thrown{20016, "tools", "validateTspResponse"})) << status;
    }
    script_.token.clear();
    EXPECT_EQ(refusal(), (Thrown{20016, "tools", "validateTspResponse"})) << "the status comes first";
}

TEST_F(TimestampTools, GrantedWithoutTokenIsRefused) {
    script_.token.clear();
    EXPECT_EQ(refusal(), (Thrown{20018, "tools", "validateTspResponse"}));
}

TEST_F(TimestampTools, AnotherImprintIsRefusedBeforeTheTokenIsRead) {
    const auto response = parse();
    service().clearCalls();
    for (const std::string& imprint :
         {std::string(), imprintOfValue.substr(1), imprintOfValue + '\0', std::string(imprintOfValue.size(), 'x')}) {
        EXPECT_EQ(thrownBy<ApplicationException>([&] { tools::validateTspResponse(response, context_, imprint); }),
                  (Thrown{20017, "tools", "validateTspContent"}));
    }
    EXPECT_THAT(functions(), ElementsAre());
}

TEST_F(TimestampTools, AnInvalidTokenSignatureIsRefused) {
    service().message.valid = false;
    EXPECT_EQ(refusal(), (Thrown{20017, "tools", "validateTspContent"}));
}

TEST_F(TimestampTools, TheTokenIsVerifiedWithTheCertificateThatTheContentNames) {
    auto response = parse();
    response.content->certificate = der(plainCertificate);
    std::string serial;
    service().on.CryptMsgControl = [&](void*, DWORD flags, DWORD type, const void* parameters) -> BOOL {
        EXPECT_EQ(flags, 0U);
        EXPECT_EQ(type, 1U) << "CMSG_CTRL_VERIFY_SIGNATURE";
        const auto& info = *static_cast<const CERT_INFO*>(parameters);
        serial.assign(reinterpret_cast<const char*>(info.SerialNumber.pbData), info.SerialNumber.cbData);
        return 1;
    };
    service().clearCalls();
    tools::validateTspResponse(response, context_, imprintOfValue);
    EXPECT_EQ(serial, "\x05") << "of the second certificate";
    EXPECT_THAT(service().trace(), Contains("CryptMsgOpenToDecode(0x10001, 0, 0, context1, null, null)"));
    EXPECT_THAT(service().trace(), Contains("CryptMsgUpdate(message2, pointer, 5, 1)"));
}

// ---- the signature with its token

TEST_F(TimestampTools, TokenBecomesAnUnsignedAttributeOfTheFirstSigner) {
    service().message.signers = {der(signerCertificate), der(plainCertificate)};
    std::vector<unsigned> signers;
    std::string attribute;
    service().on.CryptMsgControl = [&](void*, DWORD, DWORD type, const void* parameters) -> BOOL {
        EXPECT_EQ(type, 8U) << "CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR";
        const auto& added = *static_cast<const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA*>(parameters);
        EXPECT_EQ(added.cbSize, 24U);
        signers.push_back(added.dwSignerIndex);
        attribute.assign(reinterpret_cast<const char*>(added.blob.pbData), added.blob.cbData);
        return 1;
    };
    const std::string token("to\0ken", 6);
    EXPECT_EQ(tools::addTimestampToSignature(context_, "signature", token), "stamped");
    EXPECT_THAT(signers, ElementsAre(0U));
    EXPECT_EQ(attribute, "attribute of " + token);
    EXPECT_THAT(encodings_, ElementsAre(Encoding{0x10001, "22"}));
    EXPECT_THAT(functions(),
                ElementsAre("CryptMsgOpenToDecode", "CryptMsgUpdate", "CryptEncodeObject", "CryptEncodeObject",
                            "CryptMsgControl", "CryptMsgGetParam", "CryptMsgGetParam", "CryptMsgClose"));
    EXPECT_THAT(service().trace(), Contains("CryptMsgGetParam(message1, 29, 0, null, &0)"));
}

TEST_F(TimestampTools, HashIsMadeInTheContextGiven) {
    EXPECT_EQ(tools::hash(context_, streebog, "value"), imprintOfValue);
    EXPECT_EQ(service().count("CryptAcquireContextW"), 0U);
    const HCRYPTPROV none;
    EXPECT_EQ(thrownBy<CryptoException>([&] { static_cast<void>(tools::hash(none, streebog, "value")); }),
              (Thrown{30004, "hash", "CryptHash"}));
}

TEST_F(TimestampTools, NothingIsLogged) {
    makeRequest();
    script_.status = 2;
    EXPECT_EQ(refusal().code, 20016);
    EXPECT_THAT(log(), testing::IsEmpty());
}

} // namespace
} // namespace wincrypt_signatures
