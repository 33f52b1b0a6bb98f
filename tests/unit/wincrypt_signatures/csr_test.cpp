#include "csr_fixture.hpp"

#include "orvik/plugin/base64.hpp"

#include <cstring>

namespace wincrypt_signatures {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class CsrTest : public CsrFixture {};

TEST_F(CsrTest, MakesTheKeyAndTellsWhereItIs) {
    const auto result = create();
    EXPECT_EQ(orvik::plugin::base64::decode(result->request), std::string("\x30\x00", 2));
    EXPECT_EQ(result->containerName, "new");
    EXPECT_EQ(result->containerPath, "new");
    EXPECT_THAT(containers(), ElementsAre(L"box", L"new"));
    EXPECT_THAT(set_, ElementsAre("95/0/1.2.643.2.2.36.0", "32/7/1234"));
    EXPECT_THAT(service().trace(), Contains(HasSubstr("CryptGenKey(context1, 1, 0, &)")));
    EXPECT_TRUE(logged(Severity::info, "wincrypt: certificate request: container: \"new\", algorithm: "
                                       "1.2.643.2.2.36.0"));
}

TEST_F(CsrTest, EmptyPinSetsNone) {
    create("");
    EXPECT_THAT(set_, ElementsAre("95/0/1.2.643.2.2.36.0"));
}

TEST_F(CsrTest, ExportableKeyIsAskedForByItsFlag) {
    params_->exportable = true;
    create();
    EXPECT_THAT(service().trace(), Contains(HasSubstr("CryptGenKey(context1, 1, 1, &)")));
}

TEST_F(CsrTest, SubjectValuesHaveTheirTypes) {
    std::vector<std::string> values;
    service().on.CryptEncodeObject = [&](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                         DWORD* size) {
        if (buffer == nullptr && structureName(type) == "7") {
            const auto& name = *static_cast<const CERT_NAME_INFO*>(value);
            for (DWORD i = 0; i < name.cRDN; ++i) {
                const auto& one = name.rgRDN[i].rgRDNAttr[0];
                EXPECT_EQ(name.rgRDN[i].cRDNAttr, 1U);
                values.push_back(std::string(one.pszObjId) + "/" + std::to_string(one.dwValueType) + "/" +
                                 std::to_string(one.Value.cbData));
            }
        }
        return encode(encoding, type, value, buffer, size);
    };
    create();
    EXPECT_THAT(values, ElementsAre("2.5.4.3/13/24", "2.5.4.6/4/2", "1.2.840.113549.1.9.1/7/13", "1.2.643.100.3/3/11",
                                    "1.2.643.3.131.1.1/3/12", "1.2.643.100.1/3/13", "1.2.643.100.4/3/15"));
}

TEST_F(CsrTest, ExtensionsAndAttributesStandInTheirOrder) {
    askForEverything();
    std::vector<std::string> extensions;
    std::vector<std::string> attributes;
    service().on.CryptEncodeObject = [&](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                         DWORD* size) {
        if (buffer == nullptr && structureName(type) == "5") {
            const auto& list = *static_cast<const CERT_EXTENSIONS*>(value);
            for (DWORD i = 0; i < list.cExtension; ++i) {
                extensions.emplace_back(list.rgExtension[i].pszObjId);
            }
        }
        if (buffer == nullptr && structureName(type) == "14") {
            EXPECT_EQ(static_cast<const CRYPT_BIT_BLOB*>(value)->cbData, 2U);
            EXPECT_EQ(static_cast<const CRYPT_BIT_BLOB*>(value)->cUnusedBits, 7U);
        }
        if (buffer == nullptr && structureName(type) == "12") {
            const auto& names = *static_cast<const CERT_ALT_NAME_INFO*>(value);
            EXPECT_EQ(names.cAltEntry, 3U);
            EXPECT_STREQ(names.rgAltEntry[0].u.pOtherName->pszObjId, "1.3.6.1.4.1.311.20.2.3");
            EXPECT_EQ(std::wstring(names.rgAltEntry[1].u.pwszDNSName), L"example.org");
        }
        return encode(encoding, type, value, buffer, size);
    };
    service().on.CryptSignAndEncodeCertificate =
        [&](unsigned long context, DWORD keySpec, DWORD encoding, const char* type, const void* value,
            CRYPT_ALGORITHM_IDENTIFIER* algorithm, const void* aux, BYTE* buffer, DWORD* size) {
            EXPECT_EQ(keySpec, 1U);
            EXPECT_EQ(encoding, 0x00010001U);
            EXPECT_EQ(structureName(type), "4");
            EXPECT_STREQ(algorithm->pszObjId, "1.2.643.7.1.1.3.2");
            const auto& info = *static_cast<const CERT_REQUEST_INFO*>(value);
            EXPECT_EQ(info.dwVersion, 0U);
            for (DWORD i = 0; buffer == nullptr && i < info.cAttribute; ++i) {
                attributes.emplace_back(info.rgAttribute[i].pszObjId);
            }
            return Defaults::CryptSignAndEncodeCertificate(context, keySpec, encoding, type, value, algorithm, aux,
                                                           buffer, size);
        };
    create();
    EXPECT_THAT(extensions, ElementsAre("2.5.29.15", "2.5.29.32", "2.5.29.37", "2.5.29.17", "2.5.29.14",
                                        "1.2.643.100.111", "1.2.643.100.114", "2.5.29.16"));
    EXPECT_THAT(attributes, ElementsAre("1.3.6.1.4.1.311.13.2.3", "1.3.6.1.4.1.311.13.2.2", "1.3.6.1.4.1.311.13.2.1",
                                        "1.3.6.1.4.1.311.21.20", "1.2.840.113549.1.9.14"));
    for (const char* text : {"certificate policies", "validity period", "сsp provider name"}) {
        EXPECT_TRUE(
            logged(Severity::debug, std::string("wincrypt: certificate request: try encode ") + text + " to asn"))
            << text;
    }
}

TEST_F(CsrTest, OnlyTheSignatureAlgorithmOfRsaHasTheParameterNull) {
    std::string parameters = "none seen";
    service().on.CryptSignAndEncodeCertificate =
        [&](unsigned long context, DWORD keySpec, DWORD encoding, const char* type, const void* value,
            CRYPT_ALGORITHM_IDENTIFIER* algorithm, const void* aux, BYTE* buffer, DWORD* size) {
            parameters =
                std::string(algorithm->pszObjId) + '/' +
                std::string(reinterpret_cast<const char*>(algorithm->Parameters.pbData), algorithm->Parameters.cbData);
            return Defaults::CryptSignAndEncodeCertificate(context, keySpec, encoding, type, value, algorithm, aux,
                                                           buffer, size);
        };
    create();
    EXPECT_EQ(parameters, "1.2.643.7.1.1.3.2/");
    target(static_cast<IProvider::Type>(24), L"Klunortredi RSA and AES Cryptographic Service Provider");
    service().oids["2.16.840.1.101.3.4.2.1"] = {capi::CALG_SHA_256, L""};
    params_->paramSet = "1.2.840.113549.1.1.1";
    create();
    EXPECT_EQ(parameters, std::string("1.2.840.113549.1.1.11/\x05\x00", 24));
}

TEST_F(CsrTest, WhatIsNotAskedForIsLeftOut) {
    create();
    EXPECT_THAT(encodings_, Not(Contains(Encoding{0x10000, "14"})));
    EXPECT_THAT(encodings_, Not(Contains(Encoding{0x00001, "16"})));
    EXPECT_THAT(encodings_, Not(Contains(Encoding{0x10001, "36"})));
    EXPECT_THAT(encodings_, Not(Contains(Encoding{0x10001, "12"})));
    EXPECT_THAT(encodings_, Contains(Encoding{0x10001, "2.5.29.14"}));
}

TEST_F(CsrTest, ParameterSetMustBeTheProviders) {
    params_->paramSet = "1.2.643.7.1.2.1.2.1";
    EXPECT_EQ(thrownBy<CryptoException>([&] { create(); }), at("getAgreementAlgorithm", 30023));
    params_->paramSet = "1.2.643.7.1.2.1.1.1";
    create();
    EXPECT_EQ(set_.front(), "95/0/1.2.643.7.1.2.1.1.1");
}

TEST_F(CsrTest, NewestViPNetTakesTheParameterSetElsewhere) {
    target(static_cast<IProvider::Type>(78), L"Infotecs GOST 2012/1024 Cryptographic Service Provider");
    service().oids["1.2.643.7.1.1.2.3"] = {capi::CALG_GR3411_2012_512, L""};
    params_->paramSet = "1.2.643.7.1.2.1.2.1";
    create();
    EXPECT_EQ(set_.front(), "94/0/1.2.643.7.1.2.1.2.1");
}

TEST_F(CsrTest, OlderViPNetTakesItElsewhereForSignatureKeysOnly) {
    for (const DWORD spec : {1U, 2U}) {
        set_.clear();
        service().on.CryptGetUserKey = [spec](unsigned long context, DWORD asked, unsigned long* key) -> BOOL {
            return asked == spec ? Defaults::CryptGenKey(context, asked, 0, key)
                                 : static_cast<BOOL>(service_double::fail(capi::NTE_NO_KEY));
        };
        target(static_cast<IProvider::Type>(77), L"Infotecs GOST 2012/512 Cryptographic Service Provider");
        create();
        EXPECT_EQ(set_.front(), spec == 2 ? "94/0/1.2.643.2.2.36.0" : "95/0/1.2.643.2.2.36.0");
    }
}

TEST_F(CsrTest, ExistingContainerIsRefusedAndKept) {
    installed().containers.front().qualifiedName = L"\\\\.\\HDIMAGE\\box"; // where a second attempt looks
    params_->container = L"box";
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }), at("create", code(capi::NTE_EXISTS)));
    EXPECT_THAT(containers(), ElementsAre(L"box"));
}

TEST_F(CsrTest, ContainerThatWasThereBeforeSurvivesAFailureUnderTheFileReadersPrefix) {
    params_->container = L"box"; // refused as existing, then made under the prefix
    service().failFunction("CryptSignAndEncodeCertificate", 5);
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }), at("create", 5));
    EXPECT_THAT(containers(), ElementsAre(L"box"));
    EXPECT_THAT(contextCalls(), ElementsAre("acquire box 8", R"(acquire \\.\HDIMAGE\box 8)",
                                            R"(acquire \\.\HDIMAGE\box 16)", "release"));
}

TEST_F(CsrTest, FailedRequestDeletesItsContainerBeforeTheNameIsFreeForOthers) {
    service().failFunction("CryptGenKey", 5);
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }), at("generateKey", 5));
    EXPECT_THAT(contextCalls(), ElementsAre("acquire new 8", "acquire new 16", "release"));
}

TEST_F(CsrTest, ContainerThatIsNotDeletedWhileInUseIsDeletedAfterwards) {
    service().failFunction("CryptGenKey", 5);
    bool refusedOnce = false;
    service().on.CryptAcquireContextW = [&](unsigned long* handle, const wchar_t* container, const wchar_t* provider,
                                            DWORD type, DWORD flags) -> BOOL {
        if (flags == capi::CRYPT_DELETEKEYSET && !std::exchange(refusedOnce, true)) {
            return service_double::fail(capi::NTE_PERM);
        }
        return Defaults::CryptAcquireContextW(handle, container, provider, type, flags);
    };
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }), at("generateKey", 5));
    EXPECT_THAT(containers(), ElementsAre(L"box"));
    EXPECT_THAT(contextCalls(), ElementsAre("acquire new 8", "acquire new 16", "release", "acquire new 16"));
}

TEST_F(CsrTest, RefusalsTellTheUsersFromTheServices) {
    const std::pair<const char*, const char*> steps[] = {{"CryptGenKey", "generateKey"},
                                                         {"CryptSignAndEncodeCertificate", "create"}};
    for (const auto& [call, function] : steps) {
        service().failFunction(call, 1223);
        EXPECT_EQ(thrownBy<ApplicationException>([&] { create(); }), at(function, 20003));
        service().failFunction(call, 5);
        EXPECT_EQ(thrownBy<SystemException>([&] { create(); }), at(function, 5));
        service().failFunction(call, 0);
        EXPECT_THAT(containers(), ElementsAre(L"box"));
    }
}

TEST_F(CsrTest, RefusedPinAndParameterSetAreTold) {
    service().on.CryptSetProvParam = [](unsigned long, DWORD parameter, const BYTE*, DWORD) -> BOOL {
        return parameter == 32 ? static_cast<BOOL>(service_double::fail(1223)) : 1;
    };
    EXPECT_EQ(thrownBy<ApplicationException>([&] { create(); }), at("generateKey", 20003));
    service().on.CryptSetProvParam = [](unsigned long, DWORD, const BYTE*, DWORD) -> BOOL {
        return service_double::fail(1223);
    };
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }), at("setAgreementAlgorithm", 1223));
    EXPECT_THAT(containers(), ElementsAre(L"box"));
}

TEST_F(CsrTest, KeyThatIsThereIsTakenAsItIs) {
    params_->existingKey = true;
    params_->container = L"box";
    params_->encodedSubject = std::string("\x30\x00", 2);
    std::string subject = "none seen";
    service().on.CryptSignAndEncodeCertificate =
        [&](unsigned long context, DWORD keySpec, DWORD encoding, const char* type, const void* value,
            CRYPT_ALGORITHM_IDENTIFIER* algorithm, const void* aux, BYTE* buffer, DWORD* size) {
            const auto& name = static_cast<const CERT_REQUEST_INFO*>(value)->Subject;
            subject.assign(reinterpret_cast<const char*>(name.pbData), name.cbData);
            EXPECT_STREQ(algorithm->pszObjId, "1.2.643.7.1.1.3.2") << "goes with the key";
            return Defaults::CryptSignAndEncodeCertificate(context, keySpec, encoding, type, value, algorithm, aux,
                                                           buffer, size);
        };
    EXPECT_EQ(create()->containerName, "box");
    EXPECT_EQ(subject, params_->encodedSubject);
    EXPECT_THAT(set_, ElementsAre("32/0/1234")) << "the PIN unlocks; no parameter set is chosen";
    EXPECT_EQ(service().count("CryptGenKey"), 0U);
    EXPECT_THAT(contextCalls(), ElementsAre("acquire box 0", "release"));
}

TEST_F(CsrTest, FailedRequestForAKeyThatIsThereDeletesNothing) {
    params_->existingKey = true;
    params_->container = L"box";
    service().failFunction("CryptSignAndEncodeCertificate", 5);
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }), at("create", 5));
    EXPECT_THAT(contextCalls(), ElementsAre("acquire box 0", "release"));
    EXPECT_THAT(containers(), ElementsAre(L"box"));
}

TEST_F(CsrTest, KeptExtensionsStandWhereNothingElseIsAskedFor) {
    params_->dnsNames = {"new.example"};
    params_->keptExtensions = {{"2.5.29.15", "kept usage"}, {"2.5.29.17", "kept names"}, {"2.5.29.35", "not kept"}};
    std::vector<std::string> extensions;
    service().on.CryptEncodeObject = [&](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                         DWORD* size) {
        if (buffer == nullptr && structureName(type) == "5") {
            const auto& list = *static_cast<const CERT_EXTENSIONS*>(value);
            for (DWORD i = 0; i < list.cExtension; ++i) {
                const auto& der = list.rgExtension[i].Value;
                extensions.push_back(std::string(list.rgExtension[i].pszObjId) + ' ' +
                                     std::string(reinterpret_cast<const char*>(der.pbData), der.cbData));
            }
        }
        return encode(encoding, type, value, buffer, size);
    };
    create();
    EXPECT_THAT(extensions, ElementsAre("2.5.29.15 kept usage", testing::StartsWith("2.5.29.17 "),
                                        testing::StartsWith("2.5.29.14 ")));
    EXPECT_THAT(extensions, Not(Contains("2.5.29.17 kept names")));
}

TEST_F(CsrTest, MissingParametersAreRefused) {
    params_->provider.reset();
    EXPECT_EQ(thrownBy<CryptoException>([&] { create(); }), at("create", 30004));
}

} // namespace
} // namespace wincrypt_signatures
