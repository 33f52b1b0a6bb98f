// Reading parameters of messages, and feeding streams into them.

#include "binding.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"

#include "orvik/plugin/base64.hpp"
#include "unit/wincrypt_keys/test_certificates.hpp"

#include <optional>
#include <sstream>

namespace wincrypt_binding {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
namespace tools = wincrypt::tools;

class MessageTools : public DoubleFixture {
protected:
    MessageTools() {
        service().message.signers = {orvik::plugin::base64::decode(wincrypt_keys::gostCertificate)};
        *message_.emplace().put() = wincrypt::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
        service().clearCalls();
    }
    void TearDown() override {
        message_.reset();
        DoubleFixture::TearDown();
    }
    [[nodiscard]] void* message() const { return message_->get(); }
    static Thrown systemFailure(DWORD number, const char* function) { return {code(number), "tools", function, 0}; }

private:
    std::optional<wincrypt::HCRYPTMSG> message_;
};

TEST_F(MessageTools, ReadANumber) {
    EXPECT_EQ(tools::param(message(), capi::CMSG_SIGNER_COUNT_PARAM), 1U);
    EXPECT_THAT(service().trace(), ElementsAre("CryptMsgGetParam(message1, 5, 0, pointer, &4)"));
}

TEST_F(MessageTools, ThrowForANumberThatCannotBeRead) {
    EXPECT_EQ(thrownBy<SystemException>([&] { tools::param(message(), capi::CMSG_RECIPIENT_INDEX_PARAM); }),
              systemFailure(capi::CRYPT_E_INVALID_INDEX, "param"));
}

TEST_F(MessageTools, ReadWhatNamesASigner) {
    const auto block = tools::certInfo(message(), 0);
    const auto* info = reinterpret_cast<const CERT_INFO*>(block.data());
    const std::string serial(reinterpret_cast<const char*>(info->SerialNumber.pbData), info->SerialNumber.cbData);
    EXPECT_EQ(serial, "\x89\x67\x45\x23\x01");
    EXPECT_THAT(service().trace(), ElementsAre("CryptMsgGetParam(message1, 7, 0, null, &0)",
                                               testing::StartsWith("CryptMsgGetParam(message1, 7, 0, pointer, &")));
}

TEST_F(MessageTools, ThrowForASignerThatIsNotThere) {
    EXPECT_EQ(thrownBy<SystemException>([&] { tools::certInfo(message(), 1); }),
              systemFailure(capi::CRYPT_E_INVALID_INDEX, "certInfo"));
}

TEST_F(MessageTools, ThrowForASignerThatCannotBeFetched) {
    service().failCall(2, capi::NTE_FAIL);
    EXPECT_EQ(thrownBy<SystemException>([&] { tools::certInfo(message(), 0); }),
              systemFailure(capi::NTE_FAIL, "certInfo"));
}

TEST_F(MessageTools, ThrowForASignerOfSizeZero) {
    service().message.parameters[{capi::CMSG_SIGNER_CERT_INFO_PARAM, 0}] = "";
    EXPECT_THROW(tools::certInfo(message(), 0), SystemException);
    EXPECT_EQ(service().calls().size(), 1U);
}

class StreamReading : public MessageTools {
protected:
    /// Feeds that many octets and tells the calls.
    std::vector<std::string> traceOf(std::size_t size) {
        std::istringstream in(std::string(size, 'x'));
        EXPECT_TRUE(tools::read(message(), in));
        return service().trace();
    }
    static std::string update(std::size_t size, bool final) {
        return "CryptMsgUpdate(message1, pointer, " + std::to_string(size) + (final ? ", 1)" : ", 0)");
    }
};

TEST_F(StreamReading, OfAnEmptyStreamFeedsNothing) {
    EXPECT_THAT(traceOf(0), IsEmpty());
}

TEST_F(StreamReading, OfOneChunkFeedsItAsTheLast) {
    EXPECT_THAT(traceOf(4096), ElementsAre(update(4096, true)));
}

TEST_F(StreamReading, OfLessThanAChunkFeedsItAsTheLast) {
    EXPECT_THAT(traceOf(1), ElementsAre(update(1, true)));
}

TEST_F(StreamReading, MarksOnlyTheLastChunkFinal) {
    EXPECT_THAT(traceOf(8193), ElementsAre(update(4096, false), update(4096, false), update(1, true)));
}

TEST_F(StreamReading, HandsTheContentOverUnchanged) {
    std::string content;
    for (int i = 0; i < 10000; ++i) {
        content += static_cast<char>(i);
    }
    std::string fed;
    service().on.CryptMsgUpdate = [&](void*, const BYTE* data, DWORD size, BOOL) {
        fed.append(reinterpret_cast<const char*>(data), size);
        return 1;
    };
    std::istringstream in(content);
    EXPECT_TRUE(tools::read(message(), in));
    EXPECT_EQ(fed, content);
}

TEST_F(StreamReading, ThrowsAtTheChunkThatTheMessageRefuses) {
    service().failCall(2, capi::CRYPT_E_ASN1_BADTAG);
    std::istringstream in(std::string(10000, 'x'));
    EXPECT_EQ(thrownBy<SystemException>([&] { tools::read(message(), in); }),
              systemFailure(capi::CRYPT_E_ASN1_BADTAG, "read"));
    EXPECT_EQ(service().calls().size(), 2U);
}

} // namespace
} // namespace wincrypt_binding
