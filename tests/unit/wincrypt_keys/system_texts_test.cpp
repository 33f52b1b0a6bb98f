// What a request tells of the system it is made on: asked for each time, and not always text.
#include "cng_answers.hpp"

#include "unit/wincrypt_signatures/csr_fixture.hpp"

#include "crypto/wincrypt/tools_encode.hpp"

#include <stdexcept>

namespace wincrypt_signatures {
namespace {

namespace tools = orvik::plugin::wincrypt::tools;

class SystemTexts : public CsrFixture {
protected:
    SystemTexts() {
        wincrypt_keys::forgetAnswers();
        wincrypt_keys::userAgents = 0;
    }
    ~SystemTexts() override { wincrypt_keys::forgetAnswers(); }

    /// The wide texts that the encoder gets.
    std::vector<std::wstring> textsOf(const std::function<void()>& encodes) {
        std::vector<std::wstring> texts;
        service().on.CryptEncodeObject = [&](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                             DWORD* size) {
            if (buffer == nullptr && structureName(type) == "6") {
                const auto& text = *static_cast<const CERT_NAME_VALUE*>(value);
                texts.emplace_back(reinterpret_cast<const wchar_t*>(text.Value.pbData), text.Value.cbData);
            }
            return encode(encoding, type, value, buffer, size);
        };
        encodes();
        arrangeEncoder();
        return texts;
    }
};

TEST_F(SystemTexts, OfTheClientAreTakenAnewByEachCall) {
    using testing::ElementsAre;
    const auto encode = [] { static_cast<void>(tools::encodeClientInfo()); };
    EXPECT_THAT(textsOf(encode), ElementsAre(L"machine", L"user", L"program"));
    wincrypt_keys::machineName = "машина";
    EXPECT_THAT(textsOf(encode), ElementsAre(L"машина", L"user", L"program"));
    EXPECT_EQ(wincrypt_keys::userAgents, 2);
}

TEST_F(SystemTexts, OfTheSystemIsItsNameWidened) {
    wincrypt_keys::systemName = "Система 1";
    EXPECT_THAT(textsOf([] { static_cast<void>(tools::encodeOsVersion()); }), testing::ElementsAre(L"Система 1"));
}

TEST_F(SystemTexts, ThatAreNotUtf8AreTheConversionsError) {
    wincrypt_keys::systemName = "\xFF";
    EXPECT_THROW(tools::encodeOsVersion(), std::range_error);
    wincrypt_keys::machineName = "\xFF";
    EXPECT_THROW(tools::encodeClientInfo(), std::range_error);
}

TEST_F(SystemTexts, ThatAreNotUtf8LeaveNoContainer) {
    wincrypt_keys::machineName = "\xFF";
    EXPECT_THROW(create(), std::range_error);
    EXPECT_THAT(containers(), testing::ElementsAre(L"box"));
    EXPECT_TRUE(logged(Severity::info, "wincrypt: certificate request: failed"));
    params_->machineInfo = false;
    EXPECT_NE(create(), nullptr) << "nothing is told of the machine";
    EXPECT_EQ(wincrypt_keys::userAgents, 1);
}

} // namespace
} // namespace wincrypt_signatures
