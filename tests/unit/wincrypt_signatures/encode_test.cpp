#include "signatures_fixture.hpp"

#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools_attributes.hpp"
#include "crypto/wincrypt/tools_encode.hpp"
#include "orvik/plugin/user_agent.hpp"
#include "orvik/plugin/version_registry.hpp"

#include <boost/exception/get_error_info.hpp>

#include <limits>

namespace wincrypt_signatures {
namespace {

using orvik::plugin::crypto::format::SignedAttribute;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
namespace tools = orvik::plugin::wincrypt::tools;

constexpr const char* signingTime = "1.2.840.113549.1.9.5";

class EncodeTest : public SignaturesFixture {
protected:
    /// Value types and sizes of the texts that the encoder gets.
    void recordTexts() {
        service().on.CryptEncodeObject = [this](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                                DWORD* size) {
            if (buffer == nullptr && structureName(type) == "6") {
                const auto& text = *static_cast<const CERT_NAME_VALUE*>(value);
                texts_.emplace_back(text.dwValueType, text.Value.cbData);
            }
            return encode(encoding, type, value, buffer, size);
        };
    }
    std::vector<std::pair<DWORD, DWORD>> texts_;
};

TEST_F(EncodeTest, SelectsTheEncoderByBothTypes) {
    tools::encodeNamValuePair({});
    tools::encodeCertNameInfo({});
    tools::encodeCertKeyAttributesInfo({});
    tools::encodeKeyUsage({});
    tools::encodeEnhKeyUsage({});
    tools::encodeAltNameInfo({});
    tools::encodeCertPoliciesInfo({});
    tools::encodeSubjectNameIdentifier({});
    tools::encodeCspProvider({});
    tools::encodeTime({});
    tools::encodeInteger(1);
    CERT_EXTENSIONS extensions{};
    tools::encodeCertExtensions(&extensions);
    EXPECT_THAT(encodings_, ElementsAre(Encoding{0x10001, "1.3.6.1.4.1.311.13.2.1"}, Encoding{0x10001, "7"},
                                        Encoding{0x10000, "10"}, Encoding{0x10000, "14"}, Encoding{0x10001, "36"},
                                        Encoding{0x10001, "12"}, Encoding{0x00001, "16"},
                                        Encoding{0x10001, "2.5.29.14"}, Encoding{0x10001, "1.3.6.1.4.1.311.13.2.2"},
                                        Encoding{0x10001, "30"}, Encoding{0x10001, "27"}, Encoding{0x10000, "5"}));
}

TEST_F(EncodeTest, HandsTheEncoderTheCallersStructureTwice) {
    std::vector<const void*> handed;
    service().on.CryptEncodeObject = [&](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                         DWORD* size) {
        handed.push_back(value);
        return encode(encoding, type, value, buffer, size);
    };
    const auto expectHanded = [&](const auto& function, const auto& value) {
        handed.clear();
        function(value);
        EXPECT_THAT(handed, ElementsAre(&value, &value));
    };
    expectHanded(tools::encodeNamValuePair, CRYPT_ENROLLMENT_NAME_VALUE_PAIR{});
    expectHanded(tools::encodeCertNameInfo, CERT_NAME_INFO{});
    expectHanded(tools::encodeCertKeyAttributesInfo, CERT_KEY_ATTRIBUTES_INFO{});
    expectHanded(tools::encodeKeyUsage, CRYPT_BIT_BLOB{});
    expectHanded(tools::encodeEnhKeyUsage, CTL_USAGE{});
    expectHanded(tools::encodeAltNameInfo, CERT_ALT_NAME_INFO{});
    expectHanded(tools::encodeCertPoliciesInfo, CERT_POLICIES_INFO{});
    expectHanded(tools::encodeSubjectNameIdentifier, CRYPTOAPI_BLOB{});
    expectHanded(tools::encodeCspProvider, CRYPT_CSP_PROVIDER{});
    expectHanded(tools::encodeTime, FILETIME{});
    expectHanded(tools::encodeInteger, 1U);
    CERT_EXTENSIONS extensions{};
    handed.clear();
    tools::encodeCertExtensions(&extensions);
    EXPECT_THAT(handed, ElementsAre(&extensions, &extensions));
}

TEST_F(EncodeTest, HandsTheEncoderTheTextItself) {
    const std::wstring wide = L"Иванов";
    const std::string narrow = "Иванов";
    std::vector<const void*> handed;
    service().on.CryptEncodeObject = [&](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                         DWORD* size) {
        handed.push_back(static_cast<const CERT_NAME_VALUE*>(value)->Value.pbData);
        return encode(encoding, type, value, buffer, size);
    };
    tools::encodeString(wide);
    tools::encodeString(boost::string_view(narrow));
    tools::encodeOctetString(narrow);
    EXPECT_THAT(handed,
                ElementsAre(wide.data(), wide.data(), narrow.data(), narrow.data(), narrow.data(), narrow.data()));
}

TEST_F(EncodeTest, EncodesNothingAsNothing) {
    service().on.CryptEncodeObject = [](DWORD, const char*, const void*, BYTE* buffer, DWORD* size) {
        EXPECT_EQ(buffer, nullptr);
        *size = 0;
        return 1;
    };
    EXPECT_EQ(tools::encodeInteger(1), "");
    EXPECT_EQ(tools::encodeString(L"text"), "");
}

TEST_F(EncodeTest, CountsWideTextInCharactersAndOctetsInOctets) {
    recordTexts();
    tools::encodeString(L"Иванов");
    tools::encodeString(boost::string_view("Иванов"));
    tools::encodeOctetString("abc");
    tools::encodeString(L"");
    EXPECT_THAT(texts_, ElementsAre(std::pair(13U, 6U), std::pair(13U, 12U), std::pair(2U, 3U), std::pair(13U, 0U)));
    EXPECT_THAT(encodings_, Contains(Encoding{0x10001, "6"}).Times(4));
}

TEST_F(EncodeTest, GivesWhatTheEncoderGives) {
    EXPECT_EQ(tools::encodeInteger(0), std::string("\x02\x01\x00", 3));
    EXPECT_EQ(tools::encodeInteger(0x80), std::string("\x02\x02\x00\x80", 4));
    EXPECT_EQ(tools::encodeOctetString("abc"), "\x04\x03"
                                               "abc");
    EXPECT_EQ(tools::encodeString(L""), std::string("\x0C\x00", 2));
}

TEST_F(EncodeTest, RefusedEncodingIsThrown) {
    const Thrown refused{code(capi::CRYPT_E_BAD_ENCODE), "wincrypt_handler", "CryptEncodeObjectEx", 0};
    service().failFunction("CryptEncodeObject", capi::CRYPT_E_BAD_ENCODE);
    EXPECT_EQ(thrownBy<SystemException>([] { tools::encodeInteger(1); }), refused);
    EXPECT_EQ(thrownBy<SystemException>([] { tools::encodeClientInfo(); }), refused);
    EXPECT_EQ(thrownBy<SystemException>([] { tools::encodeOsVersion(); }), refused);
    EXPECT_EQ(thrownBy<SystemException>([] { tools::encodePrivateKeyUsagePeriod({}); }), refused);
    EXPECT_THAT(log(), IsEmpty());
}

TEST_F(EncodeTest, RefusedExportOfAKeyIsThrown) {
    service().failFunction("CryptExportPublicKeyInfo", capi::NTE_NO_KEY);
    EXPECT_EQ(thrownBy<SystemException>([] { tools::exportPublicKeyInfo(1); }),
              (Thrown{code(capi::NTE_NO_KEY), "wincrypt_handler", "CryptExportPublicKeyInfoEx", 0}));
}

TEST_F(EncodeTest, PrivateKeyPeriodBeginsWithItsBeginning) {
    std::vector<DWORD> times;
    service().on.CryptEncodeObject = [&](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                         DWORD* size) {
        if (buffer == nullptr && structureName(type) == "30") {
            times.push_back(static_cast<const FILETIME*>(value)->dwLowDateTime);
        }
        return structureName(type) == "30"
                   ? service_double::give("\x04\x01" + std::string(1, static_cast<char>(times.back())), buffer, size)
                   : encode(encoding, type, value, buffer, size);
    };
    EXPECT_EQ(tools::encodePrivateKeyUsagePeriod({{'b', 0}, {'e', 0}}), "\x30\x06\x04\x01"
                                                                        "b\x04\x01"
                                                                        "e");
    EXPECT_THAT(times, ElementsAre(DWORD{'b'}, DWORD{'e'}));
}

TEST_F(EncodeTest, PrivateKeyPeriodIsASequenceOfTwoTimes) {
    EXPECT_EQ(tools::encodePrivateKeyUsagePeriod({}), std::string("\x30\x04\x30\x00\x30\x00", 6));
    EXPECT_THAT(encodings_, ElementsAre(Encoding{0x10001, "30"}, Encoding{0x10001, "30"}, Encoding{0x10001, "34"}));
}

TEST_F(EncodeTest, OsVersionIsTheFrameworksText) {
    recordTexts();
    tools::encodeOsVersion();
    EXPECT_THAT(texts_, ElementsAre(std::pair(13U, static_cast<DWORD>(orvik::plugin::VersionRegistry::os().size()))));
}

TEST_F(EncodeTest, ClientInfoIsAnIdentifierAndThreeTexts) {
    recordTexts();
    const auto info = tools::encodeClientInfo();
    EXPECT_EQ(info.substr(info[1] == '\x81' ? 3 : 2, 3), "\x02\x01\x05");
    EXPECT_EQ(texts_.size(), 3U);
    EXPECT_EQ(encodings_.back(), (Encoding{0x10001, "34"}));
}

TEST_F(EncodeTest, ExportsTheExchangeKeyOfTheContainer) {
    const orvik::plugin::wincrypt::HCRYPTPROV context(L"box", wincrypt_keys::embeddedName, IProvider::gost2012_256, 0,
                                                      nullptr);
    service().clearCalls();
    const auto exported = tools::exportPublicKeyInfo(context.get());
    EXPECT_STREQ(reinterpret_cast<const CERT_PUBLIC_KEY_INFO*>(exported.data())->Algorithm.pszObjId,
                 "1.2.643.7.1.1.1.1");
    EXPECT_THAT(service().trace(), ElementsAre("CryptExportPublicKeyInfo(context1, 1, 0x10001, null, &0)", testing::_));
}

TEST_F(EncodeTest, KeyIdentifierIsTheHashOfTheBitsAlone) {
    std::string bits = "key bits";
    CERT_PUBLIC_KEY_INFO info{};
    info.PublicKey = {static_cast<DWORD>(bits.size()), reinterpret_cast<BYTE*>(bits.data()), 0};
    std::string hashed;
    service().on.CryptHashData = [&](unsigned long hash, const BYTE* data, DWORD size, DWORD flags) {
        hashed.append(reinterpret_cast<const char*>(data), size);
        return Defaults::CryptHashData(hash, data, size, flags);
    };
    EXPECT_EQ(tools::exportHashInfoFromPubKey(provider(), &info, capi::CALG_GR3411_2012_256).size(), 32U);
    EXPECT_EQ(hashed, bits);
}

TEST_F(EncodeTest, AddsASigningTimeOfNowAtTheEnd) {
    const auto result = tools::normalizeSignedAttributes({{5, "1.2.3", "\x05"}});
    ASSERT_EQ(result.size(), 2U);
    EXPECT_EQ(result[1].oid, signingTime);
    EXPECT_EQ(result[1].type, 23U);
    EXPECT_EQ(result[1].value, std::string("\x30\x00", 2));
}

TEST_F(EncodeTest, SigningTimeThatIsAddedIsThePresentMoment) {
    std::vector<std::time_t> times;
    service().on.CryptEncodeObject = [&](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                         DWORD* size) {
        const auto& time = *static_cast<const FILETIME*>(value);
        const std::uint64_t ticks = (std::uint64_t{time.dwHighDateTime} << 32U) + time.dwLowDateTime;
        times.push_back(static_cast<std::time_t>(ticks / 10000000) - 11644473600);
        return encode(encoding, type, value, buffer, size);
    };
    const std::time_t before = std::time(nullptr);
    EXPECT_EQ(tools::normalizeSignedAttributes({}).size(), 1U);
    ASSERT_FALSE(times.empty());
    EXPECT_THAT(times, testing::Each(testing::AllOf(testing::Ge(before), testing::Le(std::time(nullptr)))));
}

TEST_F(EncodeTest, OnlyTheFirstSigningTimeIsRead) {
    const auto result =
        tools::normalizeSignedAttributes({{19, "1.2.3", "x"}, {23, signingTime, "0"}, {23, signingTime, "yesterday"}});
    ASSERT_EQ(result.size(), 3U) << "none is added";
    EXPECT_EQ(result[0].value, "x");
    EXPECT_EQ(result[1].value, std::string("\x30\x00", 2));
    EXPECT_EQ(result[2].value, "yesterday") << "as it is, like any value of its type";
}

TEST_F(EncodeTest, TakesASigningTimeAsNumberOrText) {
    std::vector<std::uint64_t> times;
    service().on.CryptEncodeObject = [&](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                         DWORD* size) {
        const auto& time = *static_cast<const FILETIME*>(value);
        times.push_back((std::uint64_t{time.dwHighDateTime} << 32U) + time.dwLowDateTime);
        return encode(encoding, type, value, buffer, size);
    };
    for (const char* text : {"1700000000", "2023-11-14T22:13:20Z"}) {
        times.clear();
        EXPECT_EQ(tools::normalizeSignedAttributes({{23, signingTime, text}}).size(), 1U);
        EXPECT_THAT(times, Contains(133444736000000000U).Times(2)) << text;
    }
}

TEST_F(EncodeTest, RefusesASigningTimeThatIsNone) {
    try {
        tools::normalizeSignedAttributes({{23, signingTime, "yesterday"}});
        ADD_FAILURE() << "nothing was thrown";
    } catch (const CryptoException& e) {
        EXPECT_EQ(wincrypt_keys::describe(e), (Thrown{30048, "tools", "normalizeSignedAttributes", 0}));
        const auto* value = boost::get_error_info<orvik::plugin::exception::Value_>(e);
        ASSERT_NE(value, nullptr);
        EXPECT_EQ(*value, "yesterday");
    }
    try {
        tools::normalizeSignedAttributes({{23, signingTime, "99999999999999999999"}});
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "stoll");
    }
}

TEST_F(EncodeTest, RefusesASigningTimeBefore1601) {
    const auto encodeAt = [](const char* text) { tools::normalizeSignedAttributes({{23, signingTime, text}}); };
    const Thrown refused{30048, "tools", "normalizeSignedAttributes", 0};
    for (const char* text : {"1600-12-31T23:59:59Z", "1400-01-01T00:00:00Z", "-11644473601"}) {
        EXPECT_EQ(thrownBy<CryptoException>([&] { encodeAt(text); }), refused) << text;
    }
    for (const char* text : {"1601-01-01T00:00:00Z", "9999-12-31T23:59:59Z"}) {
        EXPECT_NO_THROW(encodeAt(text)) << text;
    }
}

TEST_F(EncodeTest, EncodesValuesByTheirTypes) {
    const auto result = tools::normalizeSignedAttributes(
        {{4, "1.2.1", "00ff"}, {2, "1.2.3", "+7"}, {19, "1.2.4", "as it is"}, {23, signingTime, "0"}});
    EXPECT_EQ(result[0].value, std::string("\x04\x02\x00\xff", 4));
    EXPECT_EQ(result[1].value, "\x02\x01\x07");
    EXPECT_EQ(result[2].value, "as it is");
}

TEST_F(EncodeTest, HandsTheEncoderWholeNumbersOf32BitsWithTheirSign) {
    std::vector<std::int32_t> numbers;
    service().on.CryptEncodeObject = [&](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                         DWORD* size) {
        if (structureName(type) == "27" && buffer == nullptr) {
            numbers.push_back(*static_cast<const std::int32_t*>(value));
        }
        return encode(encoding, type, value, buffer, size);
    };
    tools::normalizeSignedAttributes({{2, "1.2.3", "2147483647"},
                                      {2, "1.2.3", "-2147483648"},
                                      {2, "1.2.3", "-1"},
                                      {2, "1.2.3", "+7"},
                                      {2, "1.2.3", "0"}});
    EXPECT_THAT(numbers, ElementsAre(2147483647, std::numeric_limits<std::int32_t>::min(), -1, 7, 0));
}

TEST_F(EncodeTest, RefusesValuesThatAreNotOfTheirTypes) {
    const Thrown refused{30048, "tools", "operator()<orvik::plugin::crypto::format::SignedAttribute>", 0};
    for (const auto& [type, value] : std::vector<std::pair<std::uint32_t, std::string>>{{4, "0g"},
                                                                                        {4, "123"},
                                                                                        {2, "seven"},
                                                                                        {2, "2147483648"},
                                                                                        {2, "-2147483649"},
                                                                                        {2, "1 "},
                                                                                        {2, ""},
                                                                                        {12, "\xff"}}) {
        try {
            tools::normalizeSignedAttributes({{type, "1.2.3", value}});
            ADD_FAILURE() << "nothing was thrown for " << value;
        } catch (const CryptoException& e) {
            EXPECT_EQ(wincrypt_keys::describe(e), refused) << value;
            const auto* carried = boost::get_error_info<orvik::plugin::exception::Value_>(e);
            ASSERT_NE(carried, nullptr) << value;
            EXPECT_EQ(*carried, value);
        }
    }
}

} // namespace
} // namespace wincrypt_signatures
