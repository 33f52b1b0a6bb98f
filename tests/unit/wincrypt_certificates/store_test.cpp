#include "certificates_fixture.hpp"
#include "odd_letters.hpp"
#include "support/temp_folder.hpp"

#include "crypto/wincrypt/certificate_store.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <boost/smart_ptr/make_shared.hpp>

#include <cstdlib>
#include <filesystem>
#include <locale>

namespace wincrypt_certificates {
namespace {

using orvik::plugin::crypto::ICertificateStore;
using orvik::plugin::wincrypt::ProviderCertificateStore;
using orvik::plugin::wincrypt::RegistryCertificateStore;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class StoreTest : public CertificatesFixture {
protected:
    static RegistryCertificateStore memory() { return {"shown", ICertificateStore::memory}; }
    static boost::shared_ptr<IProvider> sharedProvider() {
        return boost::make_shared<orvik::plugin::wincrypt::Provider>(IProvider::gost2012_256,
                                                                     wincrypt_keys::embeddedName);
    }
};

class ViPNetStoreTest : public service_double::DoubleFixture {
protected:
    ViPNetStoreTest() : DoubleFixture(service_double::Slots{.vipNet = "vipnet"}) {}
};

class NoServiceStoreTest : public service_double::DoubleFixture {
protected:
    NoServiceStoreTest() : DoubleFixture(service_double::Slots{}) {}
};

TEST_F(ViPNetStoreTest, StoresThatViPNetLacksBecomeTrust) {
    for (const char* name : {"disallowed", "authroot", "trustedpeople", "trustedpublisher", "TrustedPublisher"}) {
        EXPECT_EQ(RegistryCertificateStore(name, ICertificateStore::system).name(), "trust");
    }
    for (const char* name : {"root", "my", "ca", "trust"}) {
        EXPECT_EQ(RegistryCertificateStore(name, ICertificateStore::system).name(), name);
    }
    EXPECT_EQ(RegistryCertificateStore("disallowed", ICertificateStore::memory).name(), "disallowed");
    EXPECT_TRUE(logged(Severity::info, "wincrypt: store=TrustedPublisher changed: store=trust"));
}

TEST_F(ViPNetStoreTest, StoreIsOpenedUnderTheNameThatItBecame) {
    EXPECT_NE(RegistryCertificateStore("Disallowed", ICertificateStore::system).handle(), nullptr);
    EXPECT_NE(RegistryCertificateStore("Root", ICertificateStore::system).handle(), nullptr);
    EXPECT_THAT(service().trace(), ElementsAre("CertOpenSystemStore(0, \"trust\")", "CertCloseStore(store1, 0)",
                                               "CertOpenSystemStore(0, \"Root\")", "CertCloseStore(store2, 0)"));
}

TEST_F(ViPNetStoreTest, NameIsLowerCasedByTheDefaultLocale) {
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new OddLetters));
    const RegistryCertificateStore store("AUQhrooQ", ICertificateStore::system);
    std::locale::global(before);
    EXPECT_EQ(store.name(), "trust");
}

/// A file in ViPNet's slot that comes and goes, no other service.
class ResourceFileTest : public service_double::DoubleFixture {
protected:
    ResourceFileTest() : DoubleFixture(service_double::Slots{.vipNet = "/missing/resource"}) {
        setenv("KLUNORTREDI_VIPNET", file().c_str(), 1);
    }
    [[nodiscard]] std::string file() const { return folder_ / "resource"; }
    void write() const { std::filesystem::create_symlink(service_double::libraryPath("vipnet"), file()); }
    static std::string nameOfDisallowed() {
        return RegistryCertificateStore("disallowed", ICertificateStore::system).name();
    }

private:
    test_support::TempFolder folder_;
};

TEST_F(ResourceFileTest, IsLookedForByEachStoreUnderThePathOfTheFirst) {
    EXPECT_EQ(nameOfDisallowed(), "disallowed");
    write();
    EXPECT_EQ(nameOfDisallowed(), "trust");
    setenv("KLUNORTREDI_VIPNET", "", 1);
    EXPECT_EQ(nameOfDisallowed(), "trust") << "the path is taken once";
    std::filesystem::remove(file());
    EXPECT_EQ(nameOfDisallowed(), "disallowed");
}

TEST_F(ResourceFileTest, ThatComesAfterTheFirstListingOpensNoStore) {
    const RegistryCertificateStore store("my", ICertificateStore::system);
    EXPECT_THAT(store.certificates(), IsEmpty());
    write();
    EXPECT_THAT(store.certificates(), IsEmpty()) << "what the first listing found holds for the process";
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(NoServiceStoreTest, SystemStoreIsEmptyAndStaysClosed) {
    EXPECT_THAT(RegistryCertificateStore("my", ICertificateStore::system).certificates(), IsEmpty());
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(StoreTest, OtherServicesKeepTheStoresName) {
    EXPECT_EQ(RegistryCertificateStore("disallowed", ICertificateStore::system).name(), "disallowed");
}

TEST_F(StoreTest, IsOpenedOnFirstUseAndClosedOnce) {
    {
        const RegistryCertificateStore store("my", ICertificateStore::system);
        EXPECT_THAT(service().trace(), IsEmpty());
        EXPECT_EQ(store.handle(), store.handle());
        EXPECT_EQ(store.type(), ICertificateStore::system);
    }
    EXPECT_THAT(functions(), ElementsAre("CertOpenSystemStore", "CertCloseStore"));
    EXPECT_THAT(service().trace(), Contains("CertOpenSystemStore(0, \"my\")"));
}

TEST_F(StoreTest, StoreThatDoesNotOpenIsTriedAgain) {
    const RegistryCertificateStore store("my", ICertificateStore::system);
    service().failFunction("CertOpenSystemStore", 2);
    EXPECT_EQ(store.handle(), nullptr);
    service().failFunction("CertOpenSystemStore", 0);
    EXPECT_NE(store.handle(), nullptr);
}

TEST_F(StoreTest, MemoryStoreIsOpenedWithoutName) {
    static_cast<void>(memory().handle());
    EXPECT_THAT(service().trace(), Contains("CertOpenStore(2, 0, 0, 0, null)"));
}

TEST_F(StoreTest, ListsCertificatesThatOutliveTheStore) {
    service().systemStores["my"] = {der(signerCertificate), der(plainCertificate)};
    const auto certificates = RegistryCertificateStore("my", ICertificateStore::system).certificates();
    ASSERT_EQ(certificates.size(), 2U);
    std::set<std::string> encodings;
    for (const auto& each : certificates) {
        encodings.insert(each->raw());
    }
    EXPECT_EQ(encodings, (std::set{der(signerCertificate), der(plainCertificate)}));
}

TEST_F(StoreTest, FindsItsOwnCopy) {
    auto store = memory();
    const auto signer = certificate();
    EXPECT_FALSE(store.findCertificate(*signer));
    EXPECT_TRUE(store.addCertificate(*signer));
    const auto found = store.findCertificate(*certificate());
    ASSERT_TRUE(found);
    EXPECT_EQ(found->raw(), signer->raw());
    EXPECT_NE(found->context(), signer->context());
    EXPECT_FALSE(store.findCertificate(*certificate(plainCertificate)));
}

TEST_F(StoreTest, CertificateAddedTwiceIsThereOnce) {
    auto store = memory();
    const auto signer = certificate();
    EXPECT_TRUE(store.addCertificate(*signer));
    EXPECT_TRUE(store.addCertificate(*signer));
    EXPECT_EQ(store.certificates().size(), 1U);
}

TEST_F(StoreTest, RefusedAdditionIsThrown) {
    auto store = memory();
    const auto signer = certificate();
    service().failFunction("CertAddCertificateContextToStore", 5);
    EXPECT_EQ(thrownBy<SystemException>([&] { store.addCertificate(*signer); }),
              (Thrown{5, "registry_certificate_store", "addCertificate", 0}));
}

TEST_F(StoreTest, DeletesAndLooksAgain) {
    auto store = memory();
    const auto signer = certificate();
    EXPECT_FALSE(store.deleteCertificate(*signer));
    store.addCertificate(*signer);
    service().clearCalls();
    EXPECT_TRUE(store.deleteCertificate(*signer));
    EXPECT_THAT(functions(), ElementsAre("CertFindCertificateInStore", "CertDeleteCertificateFromStore",
                                         "CertFindCertificateInStore"));
    EXPECT_THAT(store.certificates(), IsEmpty());
}

TEST_F(StoreTest, RefusedDeletionIsThrown) {
    auto store = memory();
    const auto signer = certificate();
    store.addCertificate(*signer);
    service().failFunction("CertDeleteCertificateFromStore", 5);
    EXPECT_EQ(thrownBy<SystemException>([&] { store.deleteCertificate(*signer); }),
              (Thrown{5, "registry_certificate_store", "deleteCertificate", 0}));
}

TEST_F(StoreTest, CertificateThatStaysAfterItsDeletionIsAFailure) {
    auto store = memory();
    const auto signer = certificate();
    store.addCertificate(*signer);
    service().on.CertDeleteCertificateFromStore = [](PCCERT_CONTEXT context) {
        return Defaults::CertFreeCertificateContext(context);
    };
    EXPECT_EQ(thrownBy<SystemException>([&] { store.deleteCertificate(*signer); }).function, "deleteCertificate");
    EXPECT_EQ(store.certificates().size(), 1U);
}

TEST_F(StoreTest, ProviderStoreShowsTheContainersCertificatesAndTouchesNoContainer) {
    installed().containers.front().certificate = der(signerCertificate);
    ProviderCertificateStore store(sharedProvider());
    EXPECT_EQ(store.name(), wincrypt_keys::narrow(wincrypt_keys::embeddedName));
    EXPECT_EQ(store.type(), ICertificateStore::provider);
    EXPECT_THAT(service().trace(), IsEmpty());
    EXPECT_EQ(store.certificates().size(), 1U);
    const std::string skipped =
        "wincrypt: skipped installing and linking certificate to provider \"" + store.name() + "\"";
    EXPECT_TRUE(logged(Severity::info, skipped));
    service().clearCalls();
    EXPECT_TRUE(store.addCertificate(*certificate(plainCertificate)));
    EXPECT_EQ(store.certificates().size(), 2U);
    EXPECT_TRUE(store.deleteCertificate(*certificate(plainCertificate)));
    EXPECT_TRUE(logged(Severity::info, "wincrypt: skipped uninstalling and unlinking certificate from provider \"" +
                                           store.name() + "\""));
    EXPECT_EQ(service().count("CryptSetKeyParam"), 0U);
    EXPECT_EQ(service().count("CryptAcquireContextW"), 0U);
    EXPECT_EQ(installed().containers.front().certificate, der(signerCertificate));
}

TEST_F(StoreTest, ProviderStoreThatFailedHalfWayIsFilledAnew) {
    auto second = wincrypt_keys::containerNamed(L"second");
    second.certificate = der(enciphermentCertificate);
    installed().containers.front().certificate = der(signerCertificate);
    installed().containers.push_back(second);
    const ProviderCertificateStore store(sharedProvider());
    int additions = 0;
    service().on.CertAddCertificateContextToStore = [&](void* handle, PCCERT_CONTEXT context, DWORD rule,
                                                        PCCERT_CONTEXT* added) -> BOOL {
        return ++additions == 2 ? static_cast<BOOL>(service_double::fail(8))
                                : Defaults::CertAddCertificateContextToStore(handle, context, rule, added);
    };
    EXPECT_EQ(thrownBy<SystemException>([&] { static_cast<void>(store.certificates()); }).function, "addCertificate");
    EXPECT_EQ(service().count("CertCloseStore"), 1U);
    EXPECT_EQ(store.certificates().size(), 2U);
}

TEST_F(StoreTest, ProviderStoreIsFilledOnce) {
    const ProviderCertificateStore store(sharedProvider());
    EXPECT_THAT(store.certificates(), IsEmpty());
    installed().containers.front().certificate = der(signerCertificate);
    EXPECT_THAT(store.certificates(), IsEmpty());
}

TEST_F(StoreTest, OperationsAskWithTheirExactArguments) {
    const auto signer = certificate();
    {
        RegistryCertificateStore store("My", ICertificateStore::system);
        EXPECT_EQ(store.name(), "My");
        EXPECT_TRUE(store.addCertificate(*signer));
        EXPECT_TRUE(store.findCertificate(*signer));
        EXPECT_TRUE(store.deleteCertificate(*signer));
    }
    const auto at = [&](std::size_t index) { return service().trace().at(index); };
    EXPECT_EQ(at(0), "CertOpenSystemStore(0, \"My\")");
    EXPECT_EQ(at(1), "CertAddCertificateContextToStore(store1, certificate2, 3, null)");
    EXPECT_EQ(at(2), "CertGetSubjectCertificateFromStore(store1, 0x10001, pointer)");
    EXPECT_EQ(at(3), "CertFreeCertificateContext(certificate3)") << "what was found is adopted, not duplicated";
    EXPECT_EQ(at(4), "CertFindCertificateInStore(store1, 0x10001, 0, 0xD0000, pointer, null)");
    EXPECT_EQ(at(5), "CertDeleteCertificateFromStore(certificate3)");
    EXPECT_EQ(at(6), at(4)) << "the same search again";
    EXPECT_EQ(at(7), "CertCloseStore(store1, 0)");
}

TEST_F(StoreTest, SearchIsForIssuerAndSerialNumber) {
    const auto signer = certificate();
    auto store = memory();
    service().on.CertGetSubjectCertificateFromStore = [&](void* handle, DWORD encoding, CERT_INFO* info) {
        EXPECT_EQ(info, static_cast<PCCERT_CONTEXT>(signer->context())->pCertInfo);
        return Defaults::CertGetSubjectCertificateFromStore(handle, encoding, info);
    };
    EXPECT_FALSE(store.findCertificate(*signer));
    EXPECT_EQ(service().count("CertGetSubjectCertificateFromStore"), 1U);
}

TEST_F(StoreTest, CopyThatStaysIsFreedAndItsCodeIsTheLastError) {
    auto store = memory();
    const auto signer = certificate();
    store.addCertificate(*signer);
    service().on.CertDeleteCertificateFromStore = [](PCCERT_CONTEXT context) {
        Defaults::CertFreeCertificateContext(context);
        orvik::plugin::wincrypt::SetLastErrorEx(32);
        return 1;
    };
    EXPECT_EQ(thrownBy<SystemException>([&] { store.deleteCertificate(*signer); }),
              (Thrown{32, "registry_certificate_store", "deleteCertificate", 0}));
    EXPECT_EQ(service().count("CertFindCertificateInStore"), 2U);
    EXPECT_EQ(functions().back(), "CertFreeCertificateContext");
}

TEST_F(StoreTest, ProviderStoreIsNamedInUtf8AndLivesInMemory) {
    const ProviderCertificateStore store(
        boost::make_shared<orvik::plugin::wincrypt::Provider>(IProvider::gost2012_256, L"Провайдер"));
    EXPECT_EQ(store.name(), "Провайдер");
    EXPECT_EQ(static_cast<unsigned>(store.type()), 2U);
    EXPECT_NE(store.handle(), nullptr);
    EXPECT_EQ(service().trace().front(), "CertOpenStore(2, 0, 0, 0, null)");
    EXPECT_EQ(service().count("CertOpenSystemStore"), 0U);
}

TEST_F(StoreTest, DeletionFromAProviderStoreOfWhatIsNotThereIsFalse) {
    ProviderCertificateStore store(sharedProvider());
    EXPECT_FALSE(store.deleteCertificate(*certificate()));
}

TEST_F(NoServiceStoreTest, StoreInMemoryIsEnumeratedAllTheSame) {
    const RegistryCertificateStore store("shown", ICertificateStore::memory);
    EXPECT_EQ(thrownBy<CryptoException>([&] { static_cast<void>(store.certificates()); }).code, 30004)
        << "no service opens it";
}

} // namespace
} // namespace wincrypt_certificates
