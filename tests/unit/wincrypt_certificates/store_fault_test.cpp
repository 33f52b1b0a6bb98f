// Both kinds of certificate store with each call of the service failing: code, place, answer and records.
#include "fault_steps.hpp"

#include "crypto/wincrypt/certificate_store.hpp"

#include <boost/smart_ptr/make_shared.hpp>

namespace wincrypt_certificates {
namespace {

using orvik::plugin::crypto::ICertificateStore;
using orvik::plugin::wincrypt::ProviderCertificateStore;
using orvik::plugin::wincrypt::RegistryCertificateStore;

constexpr const char* freed = "CertFreeCertificateContext";

std::string refused(DWORD number, const char* function) {
    return system(number, std::string("registry_certificate_store, ") + function);
}

class StoreFault : public FaultSteps {
protected:
    /// Walks an operation of the system store "my", which holds two certificates; the first is the argument.
    void store(const std::string& name, Steps steps,
               const std::function<std::string(RegistryCertificateStore&, const Certificate&)>& operation,
               const std::string& undisturbed) {
        boost::shared_ptr<Certificate> signer;
        steps.insert(steps.end(), {{"CertCloseStore", same}, {freed, same}});
        walk(
            name, steps,
            [&] {
                service().systemStores["my"] = {der(signerCertificate), der(plainCertificate)};
                signer = certificate();
            },
            [&] {
                const auto used = std::move(signer);
                RegistryCertificateStore my("my", ICertificateStore::system);
                return operation(my, *used);
            },
            undisturbed);
    }
};

TEST_F(StoreFault, OfAHandleIsNull) {
    store(
        "handle", {{"CertOpenSystemStore", "null"}},
        [](RegistryCertificateStore& my, const Certificate&) { return my.handle() == nullptr ? "null" : "open"; },
        "open");
}

TEST_F(StoreFault, OfTheCertificatesLeavesOutWhatWasNotRead) {
    store(
        "certificates",
        {{"CertOpenSystemStore", "0"},
         {"CertEnumCertificatesInStore", "0"},
         {"CertDuplicateCertificateContext", "1"},
         {"CertEnumCertificatesInStore", "1"},
         {"CertDuplicateCertificateContext", "1"},
         {"CertEnumCertificatesInStore", same}, // the end
         {freed, same, 2}},
        [](RegistryCertificateStore& my, const Certificate&) { return std::to_string(my.certificates().size()); }, "2");
}

TEST_F(StoreFault, OfASearchIsNull) {
    store(
        "findCertificate",
        {{"CertOpenSystemStore", "null"}, {"CertGetSubjectCertificateFromStore", "null"}, {freed, same}},
        [](RegistryCertificateStore& my, const Certificate& signer) {
            return my.findCertificate(signer) ? "found" : "null";
        },
        "found");
}

TEST_F(StoreFault, OfAnAdditionHasItsCodeAndPlace) {
    store(
        "addCertificate",
        {{"CertOpenSystemStore", refused(capi::ERROR_INVALID_HANDLE, "addCertificate")}, // the store is null
         {"CertAddCertificateContextToStore", refused(faultCode, "addCertificate")}},
        [](RegistryCertificateStore& my, const Certificate& signer) {
            return my.addCertificate(signer) ? "added" : "not added";
        },
        "added");
}

TEST_F(StoreFault, OfADeletionHasItsCodeAndPlace) {
    store(
        "deleteCertificate",
        {{"CertOpenSystemStore", "not there"},
         {"CertFindCertificateInStore", "not there"},
         {"CertDeleteCertificateFromStore", refused(faultCode, "deleteCertificate")},
         {"CertFindCertificateInStore", same}}, // that it is gone is the answer
        [](RegistryCertificateStore& my, const Certificate& signer) {
            return my.deleteCertificate(signer) ? "deleted" : "not there";
        },
        "deleted");
}

TEST_F(StoreFault, OfAMemoryStoreIsAnEmptyOne) {
    walk(
        "memory store", {{"CertOpenStore", same}, {"CertEnumCertificatesInStore", same}, {"CertCloseStore", same}},
        [] {},
        [] {
            const RegistryCertificateStore store("shown", ICertificateStore::memory);
            return std::to_string(store.certificates().size());
        },
        "0");
}

// ---- the store of a provider's containers

class ProviderStoreFault : public FaultSteps {
protected:
    ProviderStoreFault() { EXPECT_TRUE(linked()->provider(false)); }

    /// How two listings of one store end.
    static std::string listedTwice() {
        const ProviderCertificateStore store(boost::make_shared<orvik::plugin::wincrypt::Provider>(
            IProvider::gost2012_256, wincrypt_keys::embeddedName));
        const auto listed = [&] {
            try {
                return std::to_string(store.certificates().size());
            } catch (...) {
                return wincrypt_keys::ending({0, {}, {}, faultCode, std::current_exception()});
            }
        };
        const auto first = listed();
        return first + ", then " + listed();
    }
};

TEST_F(ProviderStoreFault, LeavesOutWhatWasNotReadAndKeepsNoPart) {
    const std::string provider = "provider: \"" + wincrypt_keys::narrow(wincrypt_keys::embeddedName) + "\"";
    const auto empty = [](const std::string& records) { return "0, then 0" + records; };
    const auto closed = [&](const std::string& number) {
        return " | wincrypt: acquire context failed, " + provider + ", reason: " + number;
    };
    const auto unread = [&](const std::string& text) {
        return " | wincrypt: get provider certificates failed, " + provider + ", error: " + text;
    };
    const Steps containers{{"CryptAcquireContextW", empty(closed(faultNumber))},
                           {"CryptGetProvParam", empty(""), 2}, // no container is found
                           {"CryptGetProvParam", same},         // the end
                           {"CryptReleaseContext", same}};
    const Steps certificate{
        {"CryptAcquireContextW", empty(closed("2148073494") + unread("Not there."))}, // nor under the reader's prefix
        {"CryptGetUserKey", same},                                                    // which of its keys
        {"CryptDestroyKey", same},
        {"CryptGetUserKey", empty(unread("Refused."))},
        {"CryptGetKeyParam", empty(""), 2},
        {"CryptDestroyKey", same},
        {"CertCreateCertificateContext", empty(unread("Refused."))},
        {"CertGetCertificateContextProperty", same}, // whether it is linked
        {"CryptGetProvParam", same, 9},              // the link's provider and container
        {"CertSetCertificateContextProperty", same},
        {"CertNameToStrW", same, 2}, // for the log
        {"CryptReleaseContext", same}};
    const Steps listing{{"CertEnumCertificatesInStore", "1, then 0"},
                        {"CertDuplicateCertificateContext", "1, then 0"},
                        {"CertEnumCertificatesInStore", same},
                        {freed, same},
                        {"CertCloseStore", same}};
    Steps steps{{"CertOpenStore", "0, then 1"}};
    steps.insert(steps.end(), containers.begin(), containers.end());
    steps.insert(steps.end(), certificate.begin(), certificate.end());
    steps.insert(steps.end(), {{"CertAddCertificateContextToStore", refused(faultCode, "addCertificate") + ", then 1"},
                               {freed, same},
                               {"CertEnumCertificatesInStore", "0, then 1"},
                               {"CertDuplicateCertificateContext", "0, then 1"},
                               {"CertEnumCertificatesInStore", same},
                               {freed, same}});
    steps.insert(steps.end(), listing.begin(), listing.end());
    walk(
        "ProviderCertificateStore::certificates", steps,
        [] {
            service().messages[faultCode] = "Refused.";
            service().messages[capi::NTE_BAD_KEYSET] = "Not there.";
            installed().containers.front().certificate = der(signerCertificate);
        },
        listedTwice, "1, then 1");
}

TEST_F(ProviderStoreFault, OfAChangeHasItsCodeAndPlaceAndNoRecordOfASkippedContainer) {
    for (const bool adds : {true, false}) {
        const std::string function = adds ? "addCertificate" : "deleteCertificate";
        const auto signer = certificate();
        ProviderCertificateStore store(boost::make_shared<orvik::plugin::wincrypt::Provider>(
            IProvider::gost2012_256, wincrypt_keys::embeddedName));
        EXPECT_TRUE(store.addCertificate(*signer));
        clearLog();
        const char* call = adds ? "CertAddCertificateContextToStore" : "CertDeleteCertificateFromStore";
        service().failFunction(call, 5);
        EXPECT_EQ(thrownBy<SystemException>([&] {
                      static_cast<void>(adds ? store.addCertificate(*signer) : store.deleteCertificate(*signer));
                  }),
                  (Thrown{5, "registry_certificate_store", function, 0}));
        EXPECT_THAT(logTexts(Severity::info), testing::IsEmpty());
        service().failFunction(call, 0);
    }
}

} // namespace
} // namespace wincrypt_certificates
