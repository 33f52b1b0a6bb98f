// Certificate stores: in memory, of messages and of the system (read only).

#include "samples.hpp"

#include <algorithm>

namespace conformance {

namespace {

using namespace capi;

class MemoryStore : public ConformanceTest {
protected:
    static Store open(DWORD flags = 0) {
        Store store(api().CertOpenStore(numbered(CERT_STORE_PROV_MEMORY), 0, 0, flags, nullptr));
        must(store.get() != nullptr, "opening a store in memory");
        return store;
    }
    static Certificate add(const Store& store, const Bytes& der, DWORD disposition = CERT_STORE_ADD_NEW) {
        const Certificate source = samples::contextOf(der);
        Certificate added;
        must(api().CertAddCertificateContextToStore(store.get(), source.get(), disposition, added.address()) != 0,
             "adding a certificate");
        return added;
    }
    static Store filled() {
        Store store = open();
        for (const Bytes* der : {&samples::root(), &samples::intermediate(), &samples::leaf()}) {
            add(store, *der);
        }
        return store;
    }
    static Bytes derOf(PCCERT_CONTEXT context) {
        return {context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded};
    }
    static std::vector<Bytes> walk(void* store) {
        std::vector<Bytes> met;
        PCCERT_CONTEXT context = nullptr;
        while ((context = api().CertEnumCertificatesInStore(store, context)) != nullptr) {
            met.push_back(derOf(context));
        }
        return met;
    }
    static Bytes find(const Store& store, DWORD type, const void* parameter) {
        const Certificate found(
            api().CertFindCertificateInStore(store.get(), X509_ASN_ENCODING, 0, type, parameter, nullptr));
        return found.get() == nullptr ? Bytes{} : derOf(found.get());
    }
};

void* madeUp() {
    static int nothing = 0;
    return &nothing;
}

} // namespace

TEST_F(MemoryStore, RefusesUnknownProviders) {
    EXPECT_REFUSED(api().CertOpenStore(numbered(9999), 0, 0, 0, nullptr), ERROR_FILE_NOT_FOUND);
    EXPECT_REFUSED(api().CertOpenStore("NoSuchProvider", 0, 0, 0, nullptr), ERROR_FILE_NOT_FOUND);
}

TEST_F(MemoryStore, RefusesSystemStoresWithoutAName) {
    EXPECT_REFUSED(api().CertOpenSystemStore(0, nullptr), BAD_ARGUMENT);
    EXPECT_REFUSED(api().CertOpenStore(numbered(CERT_STORE_PROV_SYSTEM_W), 0, 0, 0, nullptr), BAD_ARGUMENT);
}

TEST_F(MemoryStore, RefusesWhatIsNoStore) {
    const Certificate leaf = samples::contextOf(samples::leaf());
    EXPECT_REFUSED(api().CertEnumCertificatesInStore(madeUp(), nullptr), BAD_ARGUMENT, ERROR_INVALID_HANDLE);
    EXPECT_REFUSED(api().CertEnumCertificatesInStore(nullptr, nullptr), BAD_ARGUMENT, ERROR_INVALID_HANDLE);
    EXPECT_REFUSED(api().CertFindCertificateInStore(madeUp(), X509_ASN_ENCODING, 0, CERT_FIND_ANY, nullptr, nullptr),
                   BAD_ARGUMENT, ERROR_INVALID_HANDLE);
    EXPECT_REFUSED(api().CertAddCertificateContextToStore(madeUp(), leaf.get(), CERT_STORE_ADD_ALWAYS, nullptr),
                   BAD_ARGUMENT, ERROR_INVALID_HANDLE);
    EXPECT_REFUSED(api().CertCloseStore(madeUp(), 0), BAD_ARGUMENT, ERROR_INVALID_HANDLE);
}

TEST_F(MemoryStore, RefusesAClosedStore) {
    Store store = filled();
    void* const stale = store.release();
    EXPECT_ACCEPTED(api().CertCloseStore(stale, 0));
    EXPECT_REFUSED(api().CertEnumCertificatesInStore(stale, nullptr), BAD_ARGUMENT, ERROR_INVALID_HANDLE);
    EXPECT_REFUSED(api().CertCloseStore(stale, 0), BAD_ARGUMENT, ERROR_INVALID_HANDLE);
}

TEST_F(MemoryStore, BeginsEmpty) {
    const Store store = open();
    EXPECT_REFUSED(api().CertEnumCertificatesInStore(store.get(), nullptr), CRYPT_E_NOT_FOUND);
}

TEST_F(MemoryStore, GivesBackWhatWasAdded) {
    const Store store = filled();
    auto met = walk(store.get());
    EXPECT_EQ(api().GetLastError(), CRYPT_E_NOT_FOUND) << "the end of a walk";
    std::vector<Bytes> expected{samples::root(), samples::intermediate(), samples::leaf()};
    std::ranges::sort(met);
    std::ranges::sort(expected);
    EXPECT_EQ(met, expected);
}

TEST_F(MemoryStore, GivesContextsThatOutliveIt) {
    Store store = open();
    const Certificate added = add(store, samples::leaf());
    EXPECT_EQ(added.get()->hCertStore, store.get());
    store = Store();
    EXPECT_EQ(derOf(added.get()), samples::leaf());
}

TEST_F(MemoryStore, TellsAtClosingThatContextsAreStillOut) {
    Store store = open();
    const Certificate added = add(store, samples::leaf());
    EXPECT_REFUSED(api().CertCloseStore(store.release(), CERT_CLOSE_STORE_CHECK_FLAG), CRYPT_E_PENDING_CLOSE);
}

TEST_F(MemoryStore, RefusesASecondOfTheSame) {
    const Store store = open();
    add(store, samples::leaf());
    const Certificate again = samples::contextOf(samples::leaf());
    EXPECT_REFUSED(api().CertAddCertificateContextToStore(store.get(), again.get(), CERT_STORE_ADD_NEW, nullptr),
                   CRYPT_E_EXISTS);
    EXPECT_EQ(walk(store.get()).size(), 1U);
}

TEST_F(MemoryStore, UsesReplacesOrDoublesAsAsked) {
    const Store store = open();
    const Certificate first = add(store, samples::leaf());
    add(store, samples::leaf(), CERT_STORE_ADD_USE_EXISTING);
    EXPECT_EQ(walk(store.get()).size(), 1U);
    add(store, samples::leaf(), CERT_STORE_ADD_REPLACE_EXISTING);
    EXPECT_EQ(walk(store.get()).size(), 1U);
    add(store, samples::leaf(), CERT_STORE_ADD_ALWAYS);
    EXPECT_EQ(walk(store.get()).size(), 2U);
}

TEST_F(MemoryStore, RefusesBadAdditions) {
    const Store store = open();
    const Certificate leaf = samples::contextOf(samples::leaf());
    EXPECT_REFUSED(api().CertAddCertificateContextToStore(store.get(), nullptr, CERT_STORE_ADD_NEW, nullptr),
                   BAD_ARGUMENT);
    EXPECT_REFUSED(api().CertAddCertificateContextToStore(store.get(), leaf.get(), 99, nullptr), BAD_ARGUMENT);
    EXPECT_TRUE(walk(store.get()).empty());
}

TEST_F(MemoryStore, DeletesTheCertificateOfAContext) {
    const Store store = filled();
    PCCERT_CONTEXT found =
        api().CertFindCertificateInStore(store.get(), X509_ASN_ENCODING, 0, CERT_FIND_ANY, nullptr, nullptr);
    ASSERT_NE(found, nullptr);
    EXPECT_ACCEPTED(api().CertDeleteCertificateFromStore(found)); // frees the context, too
    EXPECT_EQ(walk(store.get()).size(), 2U);
    EXPECT_REFUSED(api().CertDeleteCertificateFromStore(nullptr), BAD_ARGUMENT);
}

TEST_F(MemoryStore, FindsByHashNameKeyAndText) {
    const Store store = filled();
    const Certificate leaf = samples::contextOf(samples::leaf());
    CERT_INFO& info = *leaf.get()->pCertInfo;
    Bytes thumbprint = fromHex("78937fc102fc6f9d41fde9936ee232d351d73c0c");
    const CRYPT_HASH_BLOB hash{sizeOf(thumbprint), thumbprint.data()};
    EXPECT_EQ(find(store, CERT_FIND_SHA1_HASH, &hash), samples::leaf());
    EXPECT_EQ(find(store, CERT_FIND_SUBJECT_NAME, &info.Subject), samples::leaf());
    EXPECT_EQ(find(store, CERT_FIND_ISSUER_NAME, &info.Issuer), samples::leaf());
    EXPECT_EQ(find(store, CERT_FIND_PUBLIC_KEY, &info.SubjectPublicKeyInfo), samples::leaf());
    EXPECT_EQ(find(store, CERT_FIND_SUBJECT_CERT, &info), samples::leaf());
    EXPECT_EQ(find(store, CERT_FIND_EXISTING, leaf.get()), samples::leaf());
    EXPECT_EQ(find(store, CERT_FIND_SUBJECT_STR, L"conformance leaf"), samples::leaf());
    EXPECT_EQ(find(store, CERT_FIND_SUBJECT_NAME, &info.Issuer), samples::intermediate());
}

TEST_F(MemoryStore, FindsNothingThatIsNotThere) {
    const Store store = open();
    add(store, samples::root());
    const Certificate leaf = samples::contextOf(samples::leaf());
    EXPECT_REFUSED(!find(store, CERT_FIND_EXISTING, leaf.get()).empty(), CRYPT_E_NOT_FOUND);
    EXPECT_REFUSED(!find(store, CERT_FIND_SUBJECT_STR, L"nobody").empty(), CRYPT_E_NOT_FOUND);
    EXPECT_REFUSED(api().CertGetSubjectCertificateFromStore(store.get(), X509_ASN_ENCODING, leaf.get()->pCertInfo),
                   CRYPT_E_NOT_FOUND);
}

TEST_F(MemoryStore, RefusesUnknownSearches) {
    const Store store = filled();
    EXPECT_REFUSED(!find(store, 0x00990000, nullptr).empty(), BAD_ARGUMENT);
    EXPECT_REFUSED(!find(store, CERT_FIND_SHA1_HASH, nullptr).empty(), BAD_ARGUMENT);
}

TEST_F(MemoryStore, FindsEveryMatchOnce) {
    const Store store = filled();
    PCCERT_CONTEXT found = nullptr;
    int count = 0;
    while ((found = api().CertFindCertificateInStore(store.get(), X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_STR,
                                                     L"CONFORMANCE", found)) != nullptr) {
        ++count;
    }
    EXPECT_EQ(count, 3);
}

TEST_F(MemoryStore, GivesTheCertificateOfASubject) {
    const Store store = filled();
    const Certificate leaf = samples::contextOf(samples::leaf());
    const Certificate found(
        api().CertGetSubjectCertificateFromStore(store.get(), X509_ASN_ENCODING, leaf.get()->pCertInfo));
    ASSERT_NE(found.get(), nullptr);
    EXPECT_EQ(derOf(found.get()), samples::leaf());
}

TEST_F(MemoryStore, KeepsPropertiesWithItsOwnCopy) {
    const Store store = open();
    const Certificate added = add(store, samples::leaf());
    Bytes value = octets("mine");
    const CRYPT_DATA_BLOB blob{sizeOf(value), value.data()};
    must(api().CertSetCertificateContextProperty(added.get(), CERT_DESCRIPTION_PROP_ID, 0, &blob) != 0, "a property");
    const Certificate met(api().CertEnumCertificatesInStore(store.get(), nullptr));
    EXPECT_EQ(fetch([&](void* buffer, DWORD* size) {
                  return api().CertGetCertificateContextProperty(met.get(), CERT_DESCRIPTION_PROP_ID, buffer, size) !=
                         0;
              }),
              value);
}

TEST_F(MemoryStore, RefusesChangesWhenOpenedForReading) {
    const Store store = open(CERT_STORE_READONLY_FLAG);
    const Certificate leaf = samples::contextOf(samples::leaf());
    EXPECT_REFUSED(api().CertAddCertificateContextToStore(store.get(), leaf.get(), CERT_STORE_ADD_ALWAYS, nullptr),
                   ERROR_ACCESS_DENIED);
}

TEST_F(MemoryStore, OfAMessageHoldsItsCertificates) {
    const Message message(api().CryptMsgOpenToDecode(X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr));
    const Bytes& der = samples::attached();
    must(api().CryptMsgUpdate(message.get(), der.data(), sizeOf(der), 1) != 0, "reading a message");
    const Store store(api().CertOpenStore(numbered(CERT_STORE_PROV_MSG), X509_AND_PKCS_7, 0, 0, message.get()));
    must(store.get() != nullptr, "opening the store of a message");
    auto met = walk(store.get());
    std::vector<Bytes> expected{samples::intermediate(), samples::leaf()};
    std::ranges::sort(met);
    std::ranges::sort(expected);
    EXPECT_EQ(met, expected);
}

TEST_F(MemoryStore, OfNoMessageIsRefused) {
    EXPECT_REFUSED(api().CertOpenStore(numbered(CERT_STORE_PROV_MSG), X509_AND_PKCS_7, 0, 0, nullptr), BAD_ARGUMENT,
                   ERROR_INVALID_HANDLE);
    EXPECT_REFUSED(api().CertOpenStore(numbered(CERT_STORE_PROV_MSG), X509_AND_PKCS_7, 0, 0, madeUp()), BAD_ARGUMENT,
                   ERROR_INVALID_HANDLE);
}

TEST_F(MemoryStore, OfTheSystemOpensByItsUsualNames) {
    for (const char* const name : {"My", "Root", "CA"}) {
        const Store store(api().CertOpenSystemStore(0, name));
        EXPECT_NE(store.get(), nullptr) << name << ", " << lastErrorText();
    }
}

} // namespace conformance
