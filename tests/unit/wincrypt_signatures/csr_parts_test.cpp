// What a certificate request is put together from: each extension and attribute as the encoder gets it, the records,
// and where the parameter set goes.
#include "csr_fixture.hpp"

#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/user_agent.hpp"
#include "orvik/plugin/version_registry.hpp"

#include <ctime>

namespace wincrypt_signatures {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string octets(const CRYPTOAPI_BLOB& blob) {
    return {reinterpret_cast<const char*>(blob.pbData), blob.cbData};
}

std::string utf8(const wchar_t* text) {
    return orvik::plugin::converter::utf16_to_utf8(text);
}

std::time_t seconds(const FILETIME& time) {
    return static_cast<std::time_t>(((std::uint64_t{time.dwHighDateTime} << 32U) + time.dwLowDateTime) / 10000000) -
           11644473600;
}

class CsrParts : public CsrFixture {
protected:
    using Look = std::function<void(const void*)>;

    /// Shows `look` each structure of the type, once, before it is encoded.
    void onEncoding(const std::string& structure, const Look& look) {
        service().on.CryptEncodeObject = [=, this](DWORD encoding, const char* type, const void* value, BYTE* buffer,
                                                   DWORD* size) {
            if (buffer == nullptr && structureName(type) == structure) {
                look(value);
            }
            return encode(encoding, type, value, buffer, size);
        };
    }
    /// Makes the request and gives what the look at the only structure of the type wrote down.
    template <class T>
    std::string seen(const std::string& structure, const std::function<std::string(const T&)>& describe) {
        std::string text;
        onEncoding(structure, [&](const void* value) {
            text += (text.empty() ? "" : "; ") + describe(*static_cast<const T*>(value));
        });
        create();
        return text;
    }
    [[nodiscard]] std::vector<std::string> requestRecords() const {
        std::vector<std::string> texts;
        for (const auto& record : log()) {
            if (record.text.starts_with("wincrypt: certificate request: ")) {
                texts.push_back(record.text.substr(31));
            }
        }
        return texts;
    }
};

// ---- the subject

TEST_F(CsrParts, NumbersOfTheSubjectAreNumericStringsAsTheyAreGiven) {
    params_->subject = "1.2.643.3.131.1.1=123456789012;1.2.643.100.1=1234567890123;1.2.643.100.4=123456789012345;"
                       "1.2.643.100.3=12345678901";
    std::vector<std::string> values;
    onEncoding("7", [&](const void* value) {
        const auto& name = *static_cast<const CERT_NAME_INFO*>(value);
        for (DWORD i = 0; i < name.cRDN; ++i) {
            const auto& one = name.rgRDN[i].rgRDNAttr[0];
            values.push_back(std::string(one.pszObjId) + "/" + std::to_string(one.dwValueType) + "/" +
                             octets(one.Value));
        }
    });
    create();
    EXPECT_THAT(values, ElementsAre("1.2.643.3.131.1.1/3/123456789012", "1.2.643.100.1/3/1234567890123",
                                    "1.2.643.100.4/3/123456789012345", "1.2.643.100.3/3/12345678901"));
}

TEST_F(CsrParts, SubjectIsEncodedBeforeAnythingIsMade) {
    service().failFunction("CryptEncodeObject", capi::CRYPT_E_BAD_ENCODE);
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }),
              (Thrown{code(capi::CRYPT_E_BAD_ENCODE), "wincrypt_handler", "CryptEncodeObjectEx", 0}));
    EXPECT_THAT(functions(), ElementsAre("CryptEncodeObject"));
    EXPECT_THAT(requestRecords(), IsEmpty());
}

TEST_F(CsrParts, SubjectThatIsNotUtf8IsTheConversionsError) {
    params_->subject = "2.5.4.3=\xFF";
    EXPECT_THROW(create(), std::range_error);
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(CsrParts, SubjectGoesIntoTheRequestAsItIsEncoded) {
    std::string subject;
    std::string key;
    service().on.CryptSignAndEncodeCertificate =
        [&](unsigned long context, DWORD spec, DWORD encoding, const char* type, const void* value,
            CRYPT_ALGORITHM_IDENTIFIER* algorithm, const void* aux, BYTE* buffer, DWORD* size) {
            const auto& info = *static_cast<const CERT_REQUEST_INFO*>(value);
            subject = octets(info.Subject);
            key.assign(reinterpret_cast<const char*>(info.SubjectPublicKeyInfo.PublicKey.pbData),
                       info.SubjectPublicKeyInfo.PublicKey.cbData);
            EXPECT_EQ(aux, nullptr);
            return Defaults::CryptSignAndEncodeCertificate(context, spec, encoding, type, value, algorithm, aux, buffer,
                                                           size);
        };
    create();
    EXPECT_EQ(subject, std::string("\x30\x00", 2));
    EXPECT_EQ(key, "public key");
}

// ---- the extensions

TEST_F(CsrParts, KeyUsageIsAListOfBitsWithoutZerosAtItsEnd) {
    const std::vector<std::pair<std::uint16_t, std::string>> usages{{0x0080, "\x80/7"},
                                                                    {0x00C0, "\xC0/6"},
                                                                    {0x0001, "\x01/0"},
                                                                    {0x80C8, "\xC8\x80/7"},
                                                                    {0x8000, std::string("\0\x80/7", 4)}};
    for (const auto& [usage, bits] : usages) {
        params_->container += L"x";
        params_->keyUsage = usage;
        EXPECT_EQ(seen<CRYPT_BIT_BLOB>("14",
                                       [](const CRYPT_BIT_BLOB& blob) {
                                           return std::string(reinterpret_cast<const char*>(blob.pbData), blob.cbData) +
                                                  "/" + std::to_string(blob.cUnusedBits);
                                       }),
                  bits);
    }
}

TEST_F(CsrParts, PoliciesAreTheirIdentifiersWithoutQualifiers) {
    params_->certificatePolicies = {"1.2.643.100.113.1", "1.2.643.100.113.2"};
    EXPECT_EQ(seen<CERT_POLICIES_INFO>("16",
                                       [](const CERT_POLICIES_INFO& policies) {
                                           std::string text;
                                           for (DWORD i = 0; i < policies.cPolicyInfo; ++i) {
                                               const auto& one = policies.rgPolicyInfo[i];
                                               EXPECT_EQ(one.cPolicyQualifier, 0U);
                                               EXPECT_EQ(one.rgPolicyQualifier, nullptr);
                                               text += std::string(one.pszPolicyIdentifier) + " ";
                                           }
                                           return text;
                                       }),
              "1.2.643.100.113.1 1.2.643.100.113.2 ");
    EXPECT_TRUE(logged(Severity::debug, "wincrypt: certificate request: try encode certificate policies to asn"));
}

TEST_F(CsrParts, ExtendedUsagesStandInTheirOrder) {
    params_->enhancedKeyUsage = {"1.3.6.1.5.5.7.3.4", "1.3.6.1.5.5.7.3.2"};
    EXPECT_EQ(seen<CTL_USAGE>("36",
                              [](const CTL_USAGE& usage) {
                                  EXPECT_EQ(usage.cUsageIdentifier, 2U);
                                  return std::string(usage.rgpszUsageIdentifier[0]) + " " +
                                         usage.rgpszUsageIdentifier[1];
                              }),
              "1.3.6.1.5.5.7.3.4 1.3.6.1.5.5.7.3.2");
}

TEST_F(CsrParts, AlternativeNamesArePrincipalThenHostsThenAddresses) {
    params_->userPrincipalName = "имя@domain";
    params_->dnsNames = {"example.org", "www.example.org"};
    params_->emailNames = {"i@example.org"};
    EXPECT_EQ(seen<CERT_ALT_NAME_INFO>("12",
                                       [](const CERT_ALT_NAME_INFO& names) {
                                           std::string text;
                                           for (DWORD i = 0; i < names.cAltEntry; ++i) {
                                               const auto& one = names.rgAltEntry[i];
                                               text += std::to_string(one.dwAltNameChoice) + "=";
                                               text += one.dwAltNameChoice == capi::CERT_ALT_NAME_OTHER_NAME
                                                           ? one.u.pOtherName->pszObjId + std::string("/") +
                                                                 octets(one.u.pOtherName->Value)
                                                       : one.dwAltNameChoice == capi::CERT_ALT_NAME_DNS_NAME
                                                           ? utf8(one.u.pwszDNSName)
                                                           : utf8(one.u.pwszRfc822Name);
                                               text += " ";
                                           }
                                           return text;
                                       }),
              "1=1.3.6.1.4.1.311.20.2.3/\x0C\x0D"
              "имя@domain 3=example.org 3=www.example.org 2=i@example.org ");
}

TEST_F(CsrParts, KeyIdentifierIsTheHashOfTheNewKeysBits) {
    std::string hashed;
    service().on.CryptHashData = [&](unsigned long hash, const BYTE* data, DWORD size, DWORD flags) {
        hashed.append(reinterpret_cast<const char*>(data), size);
        return Defaults::CryptHashData(hash, data, size, flags);
    };
    service().on.CryptGetHashParam = [](unsigned long, DWORD, BYTE* out, DWORD* size, DWORD) {
        return service_double::give("the digest", out, size);
    };
    EXPECT_EQ(seen<CRYPTOAPI_BLOB>("2.5.29.14", octets), "the digest");
    EXPECT_EQ(hashed, "public key");
    EXPECT_THAT(service().trace(), testing::Contains("CryptCreateHash(context2, " +
                                                     std::to_string(capi::CALG_GR3411_2012_256) + ", 0, 0, &)"));
}

TEST_F(CsrParts, SignToolIsUtf8AndIdentificationKindANumber) {
    params_->machineInfo = false;
    params_->subjectSignTool = "Средство";
    params_->identificationKind = 2;
    EXPECT_EQ(seen<CERT_NAME_VALUE>("6",
                                    [](const CERT_NAME_VALUE& value) {
                                        return std::to_string(value.dwValueType) + "/" + octets(value.Value);
                                    }),
              "13/Средство");
    params_->container = L"other";
    EXPECT_EQ(seen<unsigned>("27", [](unsigned value) { return std::to_string(value); }), "2");
}

TEST_F(CsrParts, KeyPeriodBeginsNowAndHasItsDays) {
    params_->privateKeyDays = 365;
    std::vector<std::time_t> times;
    onEncoding("30", [&](const void* value) { times.push_back(seconds(*static_cast<const FILETIME*>(value))); });
    const auto before = std::time(nullptr);
    create();
    ASSERT_EQ(times.size(), 2U);
    EXPECT_GE(times[0], before);
    EXPECT_LE(times[0], std::time(nullptr));
    EXPECT_EQ(times[1] - times[0], 365 * 86400);
    EXPECT_TRUE(logged(Severity::debug, "wincrypt: certificate request: try encode validity period to asn"));
}

TEST_F(CsrParts, ExtensionsAreNotCriticalAndHaveTheirOwnEncodings) {
    params_->identificationKind = 1;
    params_->subjectSignTool = "tool";
    EXPECT_EQ(seen<CERT_EXTENSIONS>("5",
                                    [](const CERT_EXTENSIONS& list) {
                                        std::string text;
                                        for (DWORD i = 0; i < list.cExtension; ++i) {
                                            EXPECT_EQ(list.rgExtension[i].fCritical, 0);
                                            text += list.rgExtension[i].pszObjId + std::string("=") +
                                                    octets(list.rgExtension[i].Value) + " ";
                                        }
                                        return text;
                                    }),
              std::string("2.5.29.14=\x30\0 ", 13) + "1.2.643.100.111=\x0C\x04tool 1.2.643.100.114=\x02\x01\x01 ");
}

// ---- the attributes

TEST_F(CsrParts, ProviderIsNamedWithTheExchangeKeyAndNoSignature) {
    EXPECT_EQ(seen<CRYPT_CSP_PROVIDER>("1.3.6.1.4.1.311.13.2.2",
                                       [](const CRYPT_CSP_PROVIDER& provider) {
                                           EXPECT_EQ(provider.Signature.cbData, 0U);
                                           return std::to_string(provider.dwKeySpec) + "/" +
                                                  utf8(provider.pwszProviderName);
                                       }),
              "1/" + wincrypt_keys::narrow(wincrypt_keys::embeddedName));
    EXPECT_TRUE(logged(Severity::debug, "wincrypt: certificate request: try encode сsp provider name to asn"));
}

TEST_F(CsrParts, NameAndValueNameTheSoftware) {
    EXPECT_EQ(seen<CRYPT_ENROLLMENT_NAME_VALUE_PAIR>("1.3.6.1.4.1.311.13.2.1",
                                                     [](const CRYPT_ENROLLMENT_NAME_VALUE_PAIR& pair) {
                                                         return utf8(pair.pwszName) + "=" + utf8(pair.pwszValue);
                                                     }),
              "ClientVersion=klunortredi " + orvik::plugin::VersionRegistry::product());
}

TEST_F(CsrParts, ClientInformationIsMachineUserAndProgramAfterTheNumberFive) {
    const orvik::plugin::UserAgent agent;
    std::vector<std::string> elements;
    onEncoding("34", [&](const void* value) {
        const auto& sequence = *static_cast<const CRYPT_SEQUENCE_OF_ANY*>(value);
        for (DWORD i = 0; i < sequence.cValue; ++i) {
            elements.push_back(octets(sequence.rgValue[i]));
        }
    });
    std::vector<std::wstring> texts;
    service().on.CryptEncodeObject = [&, before = service().on.CryptEncodeObject](DWORD encoding, const char* type,
                                                                                  const void* value, BYTE* buffer,
                                                                                  DWORD* size) {
        if (buffer == nullptr && structureName(type) == "6") {
            const auto& text = *static_cast<const CERT_NAME_VALUE*>(value);
            texts.emplace_back(reinterpret_cast<const wchar_t*>(text.Value.pbData), text.Value.cbData);
        }
        return before(encoding, type, value, buffer, size);
    };
    create();
    using orvik::plugin::converter::utf8_to_utf16;
    EXPECT_THAT(texts, ElementsAre(utf8_to_utf16(orvik::plugin::VersionRegistry::os()), utf8_to_utf16(agent.machine),
                                   utf8_to_utf16(agent.user), utf8_to_utf16(agent.process)))
        << "the system's version is an attribute before them";
    ASSERT_EQ(elements.size(), 4U);
    EXPECT_EQ(elements[0], "\x02\x01\x05");
}

TEST_F(CsrParts, EachAttributeHasOneValue) {
    std::vector<std::string> attributes;
    service().on.CryptSignAndEncodeCertificate =
        [&](unsigned long context, DWORD spec, DWORD encoding, const char* type, const void* value,
            CRYPT_ALGORITHM_IDENTIFIER* algorithm, const void* aux, BYTE* buffer, DWORD* size) {
            const auto& info = *static_cast<const CERT_REQUEST_INFO*>(value);
            for (DWORD i = 0; buffer == nullptr && i < info.cAttribute; ++i) {
                EXPECT_EQ(info.rgAttribute[i].cValue, 1U);
                EXPECT_NE(info.rgAttribute[i].rgValue[0].cbData, 0U);
                attributes.emplace_back(info.rgAttribute[i].pszObjId);
            }
            return Defaults::CryptSignAndEncodeCertificate(context, spec, encoding, type, value, algorithm, aux, buffer,
                                                           size);
        };
    params_->machineInfo = false;
    create();
    EXPECT_THAT(attributes, ElementsAre("1.3.6.1.4.1.311.13.2.2", "1.3.6.1.4.1.311.13.2.1", "1.2.840.113549.1.9.14"));
}

// ---- the records

TEST_F(CsrParts, RecordsOfARequestStandInTheirOrder) {
    params_->container = L"Ключ \"1\"";
    params_->certificatePolicies = {"1.2.3"};
    params_->privateKeyDays = 1;
    create();
    EXPECT_THAT(requestRecords(),
                ElementsAre("provider: \"" + wincrypt_keys::narrow(wincrypt_keys::embeddedName) +
                                R"(", container: "Ключ \"1\"")",
                            R"(container: "Ключ \"1\"", algorithm: 1.2.643.2.2.36.0)",
                            "try encode certificate policies to asn", "try encode validity period to asn",
                            "try encode сsp provider name to asn", "done"));
}

TEST_F(CsrParts, RecordsOfAFailedRequestEndWithIt) {
    service().failFunction("CryptGenKey", 5);
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }), at("generateKey", 5));
    EXPECT_THAT(requestRecords(), ElementsAre("provider: \"" + wincrypt_keys::narrow(wincrypt_keys::embeddedName) +
                                                  "\", container: \"new\"",
                                              "container: \"new\", algorithm: 1.2.643.2.2.36.0", "failed"));
}

// ---- the container

TEST_F(CsrParts, CancelledAcquisitionIsTheUsersAndMakesNothing) {
    for (const DWORD cancelled : {1223U, 0x8010006EU}) {
        service().failFunction("CryptAcquireContextW", cancelled);
        EXPECT_EQ(thrownBy<ApplicationException>([&] { create(); }), at("create", 20003));
    }
    for (const DWORD refused : {87U, 5U}) { // a bad name has the first code, too
        service().failFunction("CryptAcquireContextW", refused);
        EXPECT_EQ(thrownBy<SystemException>([&] { create(); }), at("create", code(refused)));
    }
    EXPECT_EQ(service().count("CryptGenKey") + service().count("CryptSetProvParam"), 0U);
    EXPECT_THAT(containers(), ElementsAre(L"box"));
}

TEST_F(CsrParts, ContainerIsMadeByItsNameThenItsParameterSetThenItsKey) {
    create();
    std::vector<std::string> calls;
    for (const auto& text : service().trace()) {
        if (text.starts_with("CryptAcquireContextW(&, \"") || text.starts_with("CryptSetProvParam") ||
            text.starts_with("CryptGenKey") || text.starts_with("CryptExportPublicKeyInfo") ||
            text.starts_with("CryptSignAndEncode")) {
            calls.push_back(text.substr(0, text.find(", pointer")));
        }
    }
    EXPECT_THAT(calls, ElementsAre("CryptAcquireContextW(&, \"new\", \"" +
                                       wincrypt_keys::narrow(wincrypt_keys::embeddedName) + "\", 80, 8)",
                                   "CryptSetProvParam(context1, 95", "CryptSetProvParam(context1, 32",
                                   "CryptGenKey(context1, 1, 0, &)",
                                   "CryptExportPublicKeyInfo(context1, 1, 0x10001, null, &0)",
                                   "CryptExportPublicKeyInfo(context1, 1, 0x10001",
                                   "CryptSignAndEncodeCertificate(context1, 1, 0x10001, 4",
                                   "CryptSignAndEncodeCertificate(context1, 1, 0x10001, 4"));
}

TEST_F(CsrParts, ResultNamesThePathAndTheNameInUtf8) {
    params_->container = L"Ключ";
    service().on.CryptGenKey = [](unsigned long context, ALG_ID algorithm, DWORD flags, unsigned long* key) {
        installed().containers.back().uniqueName = L"HDIMAGE\\\\Ключ.000";
        return Defaults::CryptGenKey(context, algorithm, flags, key);
    };
    const auto result = create();
    EXPECT_EQ(result->containerName, "Ключ");
    EXPECT_EQ(result->containerPath, "HDIMAGE\\\\Ключ.000");
}

/// Which key the new context says that it has, its provider's type, and the parameter that takes the parameter set.
struct Parameter {
    DWORD keySpec;
    unsigned type;
    const char* number;
};

class CsrParameter : public CsrFixture, public testing::WithParamInterface<Parameter> {};

TEST_P(CsrParameter, OfTheParameterSetFollowsKeyAndProvider) {
    service().on.CryptGetUserKey = [](unsigned long context, DWORD asked, unsigned long* key) -> BOOL {
        return asked == GetParam().keySpec ? Defaults::CryptGenKey(context, asked, 0, key)
                                           : static_cast<BOOL>(service_double::fail(capi::NTE_NO_KEY));
    };
    target(static_cast<IProvider::Type>(GetParam().type), wincrypt_keys::embeddedName);
    create();
    EXPECT_EQ(set_.front(), GetParam().number + std::string("/0/1.2.643.2.2.36.0"));
}

INSTANTIATE_TEST_SUITE_P(Table, CsrParameter,
                         testing::Values(Parameter{1, 2, "95"}, Parameter{1, 77, "95"}, Parameter{1, 78, "94"},
                                         Parameter{1, 75, "95"}, Parameter{1, 80, "95"}, Parameter{1, 81, "95"},
                                         Parameter{2, 2, "94"}, Parameter{2, 77, "94"}, Parameter{2, 78, "94"},
                                         Parameter{2, 75, "95"}, Parameter{2, 80, "95"}, Parameter{2, 81, "95"},
                                         Parameter{0, 78, "94"}, Parameter{0, 77, "95"}));

} // namespace
} // namespace wincrypt_signatures
