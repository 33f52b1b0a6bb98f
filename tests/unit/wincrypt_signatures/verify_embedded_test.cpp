// The check of the first signer over the embedded service: verdict, reason and log record of each kind of refusal.

#include "crypto/wincrypt/signature_validator.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/log.hpp"

#include "crafted.hpp"
#include "crypto/wincrypt/exceptions.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <gmock/gmock.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace klunortredi::test;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using orvik::plugin::wincrypt::GetLastErrorEx;
using orvik::plugin::wincrypt::SetLastErrorEx;
using testing::ElementsAre;
using testing::IsEmpty;
namespace log = orvik::plugin::log;
namespace tools = orvik::plugin::wincrypt::tools;
namespace binary = orvik::plugin::wincrypt::binary;

constexpr const char* content = "content";

std::string text(const Bytes& octets) {
    return {octets.begin(), octets.end()};
}

/// The record of a check that the service refused.
std::string refusal(unsigned code) {
    SetLastErrorEx(code);
    return std::string("wincrypt: verify failed: ") + SystemException().what();
}

class VerifyEmbedded : public testing::Test {
protected:
    VerifyEmbedded() {
        log::setLevel(log::Severity::trace);
        log::setSink([this](log::Severity severity, std::string_view record) {
            if (severity == log::Severity::error) {
                errors.emplace_back(record);
            }
        });
    }
    ~VerifyEmbedded() override { log::setSink({}); }

    [[nodiscard]] std::string signedMessage(bool detached, bool attributes = true) const {
        SignOptions options;
        options.detached = detached;
        if (attributes) {
            options.attributes = someAttributes();
        }
        return text(sign({signer}, bytes(content), options));
    }

    /// As tools::verify and as the handler have it.
    static bool verify(const std::string& message, const boost::optional<std::string>& data = {}) {
        binary::Validator validator;
        binary::Validator::Params params;
        if (data) {
            params.content = boost::make_shared<std::istringstream>(*data);
        }
        validator.initialize(params);
        const bool verdict = validator.update(reinterpret_cast<const unsigned char*>(message.data()), message.size());
        std::vector<unsigned char> out;
        EXPECT_EQ(validator.finalize(out), verdict);
        return verdict;
    }

    Signer signer = makeSigner(KeyKind::Gost256);
    std::vector<std::string> errors;
};

TEST_F(VerifyEmbedded, ValidSignaturesLeaveNoRecord) {
    EXPECT_TRUE(verify(signedMessage(false)));
    EXPECT_TRUE(verify(signedMessage(true), std::string(content)));
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(VerifyEmbedded, DetachedSignatureWithoutContentIsRefusedAndLogged) {
    EXPECT_FALSE(verify(signedMessage(true)));
    const unsigned code = GetLastErrorEx();
    EXPECT_NE(code, 0U);
    EXPECT_THAT(errors, ElementsAre(refusal(code)));
}

TEST_F(VerifyEmbedded, DetachedSignatureOfOtherContentIsRefusedAndLogged) {
    const std::string message = signedMessage(true);
    for (const char* other : {"Content", "content ", "conten", ""}) {
        errors.clear();
        EXPECT_FALSE(verify(message, std::string(other)));
        EXPECT_THAT(errors, ElementsAre(refusal(capi::CRYPT_E_HASH_VALUE))) << other;
    }
    errors.clear();
    EXPECT_FALSE(verify(signedMessage(true, false), std::string("Content"))) << "the value itself is over the content";
    EXPECT_THAT(errors, ElementsAre(refusal(capi::NTE_BAD_SIGNATURE)));
}

TEST_F(VerifyEmbedded, MessageWithoutCertificatesIsRefusedAndLogged) {
    Crafted message = honest(signer, bytes(content));
    message.certificates.clear();
    EXPECT_FALSE(verify(text(encode(signer, message))));
    const CryptoException missing(CryptoException::Code::noCertificate);
    EXPECT_EQ(missing.code().value(), 30003);
    EXPECT_THAT(errors, ElementsAre(std::string("wincrypt: verify failed: ") + missing.what()));
}

TEST_F(VerifyEmbedded, MessageWithoutItsSignersCertificateIsRefusedWithoutRecord) {
    Crafted message = honest(signer, bytes(content));
    message.certificates = {certificateFor(signer, serialOf(signer.certificate) + 1)};
    EXPECT_FALSE(verify(text(encode(signer, message))));
    EXPECT_EQ(GetLastErrorEx(), capi::CRYPT_E_NOT_FOUND);
    EXPECT_THAT(errors, IsEmpty());
}

TEST_F(VerifyEmbedded, SignatureInTwoUpdatesIsCheckedTwiceAndRefusedTwice) {
    const std::string message = signedMessage(false);
    binary::Validator validator;
    validator.initialize(binary::Validator::Params());
    const auto* octets = reinterpret_cast<const unsigned char*>(message.data());
    const std::size_t half = message.size() / 2;
    EXPECT_FALSE(validator.update(octets, half));
    EXPECT_FALSE(validator.update(octets + half, message.size() - half));
    EXPECT_EQ(errors.size(), 2U);
    EXPECT_TRUE(validator.update(octets, message.size())) << "the whole one decides";
    std::vector<unsigned char> out;
    EXPECT_TRUE(validator.finalize(out));
}

TEST_F(VerifyEmbedded, FurtherSignersAreNotExamined) {
    Crafted message = honest(signer, bytes(content));
    Crafted forged = message;
    forged.signatureValue = Bytes{};
    message.moreSignerInfos = {encodeSignerInfo(signer, forged)};
    EXPECT_TRUE(verify(text(encode(signer, message))));
    message.signatureValue = Bytes{};
    message.moreSignerInfos = {encodeSignerInfo(signer, honest(signer, bytes(content)))};
    EXPECT_FALSE(verify(text(encode(signer, message)))) << "the first one is forged";
}

} // namespace
