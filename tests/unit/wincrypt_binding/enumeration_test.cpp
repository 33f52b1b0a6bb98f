// Listing the installed providers, and the certificates of a system store.

#include "binding.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate.hpp"

#include "orvik/plugin/base64.hpp"
#include "unit/wincrypt_keys/test_certificates.hpp"

namespace wincrypt_binding {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class ProviderEnumeration : public DoubleFixture {};

TEST_F(ProviderEnumeration, AsksEachIndexForItsSizeThenItsName) {
    service().providers[""] = {scripted("One", 75), scripted("Three", 24)};
    EXPECT_THAT(wincrypt::EnumProvidersEx(), ElementsAre(Pair(24, L"Three"), Pair(75, L"One")));
    EXPECT_THAT(service().trace(), ElementsAre("CryptEnumProviders(0, null, 0, &, null, &0)",
                                               "CryptEnumProviders(0, null, 0, &, pointer, &4)",
                                               "CryptEnumProviders(1, null, 0, &, null, &0)",
                                               "CryptEnumProviders(1, null, 0, &, pointer, &6)",
                                               "CryptEnumProviders(2, null, 0, &, null, &0)"));
}

TEST_F(ProviderEnumeration, KeepsTheFirstNameOfAProviderType) {
    service().providers[""] = {scripted("First", 80), scripted("Second", 80)};
    EXPECT_THAT(wincrypt::EnumProvidersEx(), ElementsAre(Pair(80, L"First")));
}

TEST_F(ProviderEnumeration, GivesTheCanonicalNameOfAnAlias) {
    service().providers[""] = {scripted("Crypto-Pro GOST R 34.10-2012 KC1 CSP", 80)};
    EXPECT_THAT(wincrypt::EnumProvidersEx(), ElementsAre(Pair(80, cryptoProName)));
}

TEST_F(ProviderEnumeration, ReadsNamesAsUtf8) {
    service().providers[""] = {scripted("Провайдер", 75)};
    EXPECT_THAT(wincrypt::EnumProvidersEx(), ElementsAre(Pair(75, L"Провайдер")));
}

TEST_F(ProviderEnumeration, RemovesOneTrailingZeroOnly) {
    service().providers[""] = {scripted(std::string("Name\0", 5), 75)};
    EXPECT_THAT(wincrypt::EnumProvidersEx(), ElementsAre(Pair(75, std::wstring(L"Name\0", 5))));
}

TEST_F(ProviderEnumeration, SkipsAProviderWhoseNameCannotBeRead) {
    service().providers[""] = {scripted("One", 75), scripted("Two", 80), scripted("Three", 81)};
    service().on.CryptEnumProviders = [](DWORD index, DWORD* reserved, DWORD flags, DWORD* type, char* name,
                                         DWORD* size) {
        return name != nullptr && index == 1 ? BOOL{fail(capi::NTE_FAIL)}
                                             : Defaults::CryptEnumProviders(index, reserved, flags, type, name, size);
    };
    EXPECT_THAT(wincrypt::EnumProvidersEx(), ElementsAre(Pair(75, L"One"), Pair(81, L"Three")));
}

TEST_F(ProviderEnumeration, SkipsAProviderWhoseNameIsNoUtf8) {
    service().providers[""] = {scripted("One", 75), scripted("\xCF\xF0", 80), scripted("Three", 81)};
    EXPECT_THAT(wincrypt::EnumProvidersEx(), ElementsAre(Pair(75, L"One"), Pair(81, L"Three")));
    EXPECT_THAT(
        log(), testing::Contains(LogRecord{Severity::warning, "wincrypt: provider without a readable name, type: 80"}));
}

TEST_F(ProviderEnumeration, StopsAtASizeOfZero) {
    service().providers[""] = {scripted("One", 75), scripted("Two", 80)};
    service().on.CryptEnumProviders = [](DWORD index, DWORD* reserved, DWORD flags, DWORD* type, char* name,
                                         DWORD* size) {
        const BOOL result = Defaults::CryptEnumProviders(index, reserved, flags, type, name, size);
        *size = index == 1 ? 0 : *size;
        return result;
    };
    EXPECT_THAT(wincrypt::EnumProvidersEx(), ElementsAre(Pair(75, L"One")));
}

TEST_F(ProviderEnumeration, StopsAtAFailureWhateverSizeItLeaves) {
    service().providers[""] = {scripted("One", 75)};
    service().on.CryptEnumProviders = [](DWORD index, DWORD* reserved, DWORD flags, DWORD* type, char* name,
                                         DWORD* size) -> BOOL {
        if (index == 0) {
            return Defaults::CryptEnumProviders(index, reserved, flags, type, name, size);
        }
        EXPECT_EQ(index, 1U);
        *size = 4;
        return index > 2 ? throw std::runtime_error("no end") : BOOL(fail(259));
    };
    EXPECT_THAT(wincrypt::EnumProvidersEx(), ElementsAre(Pair(75, L"One")));
}

TEST_F(ProviderEnumeration, AsksNothingOfAProviderWithoutAName) {
    service().providers[""] = {scripted("One", 75), scripted("Two", 80), scripted("Three", 81)};
    service().on.CryptEnumProviders = [](DWORD index, DWORD* reserved, DWORD flags, DWORD* type, char* name,
                                         DWORD* size) {
        const BOOL result = Defaults::CryptEnumProviders(index, reserved, flags, type, name, size);
        *size = index == 1 ? 0 : *size;
        return result;
    };
    EXPECT_THAT(wincrypt::EnumProvidersEx(), ElementsAre(Pair(75, L"One"))) << "the third is never asked for";
}

class TwoServices : public DoubleFixture {
protected:
    TwoServices() : DoubleFixture(Slots{.vipNet = "vipnet", .cryptoPro = "full"}) {}
};

TEST_F(TwoServices, BothHaveTheirProvidersEnumeratedVipNetFirst) {
    service().providers["vipnet"] = {scripted("ViPNet", 2), scripted("ViPNet 80", 80)};
    service().providers["full"] = {scripted("CryptoPro 80", 80), scripted("CryptoPro 81", 81)};
    EXPECT_THAT(wincrypt::EnumProvidersEx(),
                ElementsAre(Pair(2, L"ViPNet"), Pair(80, L"ViPNet 80"), Pair(81, L"CryptoPro 81")));
    EXPECT_EQ(service().calls().front().library, "vipnet");
    EXPECT_EQ(service().calls().back().library, "full");
}

class StoreEnumeration : public DoubleFixture {
protected:
    StoreEnumeration() {
        service().systemStores["my"] = {orvik::plugin::base64::decode(wincrypt_keys::gostCertificate),
                                        orvik::plugin::base64::decode(wincrypt_keys::rsaCertificate)};
    }
};

TEST_F(StoreEnumeration, OfAnEmptyNameIsEmptyAndAsksNothing) {
    EXPECT_THAT(wincrypt::CertEnumCertificatesInStoreEx(""), IsEmpty());
    EXPECT_THAT(service().calls(), IsEmpty());
}

TEST_F(StoreEnumeration, GivesEveryCertificate) {
    std::vector<std::string> found;
    for (const auto& certificate : wincrypt::CertEnumCertificatesInStoreEx("my")) {
        found.push_back(certificate->raw());
    }
    EXPECT_THAT(found, testing::UnorderedElementsAreArray(service().systemStores["my"]));
}

TEST_F(StoreEnumeration, KeepsACertificateThatIsThereTwice) {
    service().systemStores["my"].push_back(service().systemStores["my"].front());
    EXPECT_EQ(wincrypt::CertEnumCertificatesInStoreEx("my").size(), 3U);
}

TEST_F(StoreEnumeration, WalksDuplicatesAndClosesTheStore) {
    const auto certificates = wincrypt::CertEnumCertificatesInStoreEx("my");
    EXPECT_THAT(service().trace(),
                ElementsAre("CertOpenSystemStore(0, \"my\")", "CertEnumCertificatesInStore(store1, null)",
                            "CertDuplicateCertificateContext(certificate1)",
                            "CertEnumCertificatesInStore(store1, certificate1)",
                            "CertDuplicateCertificateContext(certificate2)",
                            "CertEnumCertificatesInStore(store1, certificate2)", "CertCloseStore(store1, 0)"));
}

TEST_F(StoreEnumeration, PassesAPieceOfTextAsAZeroTerminatedName) {
    EXPECT_EQ(wincrypt::CertEnumCertificatesInStoreEx(boost::string_view("my store", 2)).size(), 2U);
}

TEST_F(StoreEnumeration, OfAStoreThatCannotBeOpenedIsEmpty) {
    service().failFunction("CertOpenSystemStore", capi::ERROR_ACCESS_DENIED);
    EXPECT_THAT(wincrypt::CertEnumCertificatesInStoreEx("my"), IsEmpty());
    EXPECT_EQ(service().calls().size(), 1U);
}

} // namespace
} // namespace wincrypt_binding
