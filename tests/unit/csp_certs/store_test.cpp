#include "service.hpp"

#include "stores/context.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

const std::vector<pki::Entity>& people() {
    static const auto* const entities = [] {
        auto* const list = new std::vector<pki::Entity>;
        list->push_back(pki::make({.subject = "Иванов Иван", .kind = pki::KeyKind::Gost256, .serial = 11}));
        list->push_back(pki::make({.subject = "Second Person", .serial = 12}));
        list->push_back(
            pki::make({.subject = "Third Person", .serial = 13, .extensions = {{NID_subject_key_identifier, "hash"}}}));
        return list;
    }();
    return *entities;
}

/// What holds for every store, on disk or not.
class AnyStore : public ServiceTest, public testing::WithParamInterface<const char*> {
protected:
    AnyStore() : store_(std::string_view(GetParam()) == "memory" ? memoryStore() : systemStore(GetParam())) {}

    Context find(DWORD type, const void* parameter, PCCERT_CONTEXT previous = nullptr) {
        return Context(api::CertFindCertificateInStore(store_.get(), encodings, 0, type, parameter, previous));
    }
    void addPeople() {
        for (const auto& person : people()) {
            ASSERT_NE(add(store_.get(), person.der), nullptr);
        }
    }

    StoreHandle store_;
};

INSTANTIATE_TEST_SUITE_P(Kinds, AnyStore, testing::Values("memory", "my"),
                         [](const auto& parameter) { return std::string(parameter.param); });

TEST_P(AnyStore, IsEmptyWhenNew) {
    ASSERT_NE(store_, nullptr);
    EXPECT_EQ(api::CertEnumCertificatesInStore(store_.get(), nullptr), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND);
}

TEST_P(AnyStore, EnumeratesWhatWasAddedAndFreesEachPrevious) {
    addPeople();
    EXPECT_THAT(walk(store_.get()), ElementsAre(people()[0].der, people()[1].der, people()[2].der));
    EXPECT_EQ(csp::liveContexts(), 0U);
}

TEST_P(AnyStore, TellsTheStoreInItsContexts) {
    addPeople();
    const Context context(api::CertEnumCertificatesInStore(store_.get(), nullptr));
    EXPECT_EQ(context->hCertStore, store_.get());
}

TEST_P(AnyStore, RefusesAContextThatIsNotLiveAsPrevious) {
    const CERT_CONTEXT foreign{};
    EXPECT_EQ(api::CertEnumCertificatesInStore(store_.get(), &foreign), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
}

TEST_P(AnyStore, FreesThePreviousContextAlsoWhenTheStoreIsRefused) {
    Context previous = add(store_.get(), people()[0].der);
    EXPECT_EQ(api::CertEnumCertificatesInStore(nullptr, previous.release()), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_HANDLE);
    EXPECT_EQ(csp::liveContexts(), 0U);
}

TEST_P(AnyStore, AddsTheSameCertificateOnce) {
    addPeople();
    addPeople();
    EXPECT_EQ(walk(store_.get()).size(), people().size());
}

TEST_P(AnyStore, RefusesAnExistingCertificateAsNew) {
    addPeople();
    EXPECT_EQ(add(store_.get(), people()[1].der, capi::CERT_STORE_ADD_NEW), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_EXISTS);
    EXPECT_EQ(add(store_.get(), people()[1].der, 99), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
}

TEST_P(AnyStore, ReplacesACertificateOfTheSameIssuerAndSerialWithItsProperties) {
    const auto old = add(store_.get(), people()[1].der);
    ASSERT_TRUE(setBlob(old.get(), 77, {1}));
    const auto renewed = pki::make({.subject = "Second Person", .serial = 12, .notAfter = std::time(nullptr) + 9});
    const auto added = add(store_.get(), renewed.der);
    EXPECT_THAT(walk(store_.get()), ElementsAre(renewed.der));
    EXPECT_TRUE(property(added.get(), 77).empty());
    EXPECT_EQ(property(old.get(), 77), csp::Bytes{1}) << "the context of the old one lives on";
}

TEST_P(AnyStore, KeepsAnExistingCertificateAndAddsThePropertiesThatItLacks) {
    const auto held = add(store_.get(), people()[1].der);
    ASSERT_TRUE(setBlob(held.get(), 77, {1}));
    const auto renewed = pki::make({.subject = "Second Person", .serial = 12, .notAfter = std::time(nullptr) + 9});
    const auto source = contextOf(renewed.der);
    ASSERT_TRUE(setBlob(source.get(), 77, {2}));
    ASSERT_TRUE(setBlob(source.get(), 78, {3}));
    PCCERT_CONTEXT used = nullptr;
    ASSERT_TRUE(
        api::CertAddCertificateContextToStore(store_.get(), source.get(), capi::CERT_STORE_ADD_USE_EXISTING, &used));
    const Context owner(used);
    EXPECT_THAT(walk(store_.get()), ElementsAre(people()[1].der));
    EXPECT_EQ(property(held.get(), 77), csp::Bytes{1});
    EXPECT_EQ(property(held.get(), 78), csp::Bytes{3});
}

TEST_P(AnyStore, AddsBesideAnExistingCertificateWhenAsked) {
    add(store_.get(), people()[1].der);
    const auto renewed = pki::make({.subject = "Second Person", .serial = 12, .notAfter = std::time(nullptr) + 9});
    ASSERT_NE(add(store_.get(), renewed.der, capi::CERT_STORE_ADD_ALWAYS), nullptr);
    EXPECT_THAT(walk(store_.get()), UnorderedElementsAre(people()[1].der, renewed.der));
}

TEST_P(AnyStore, TakesItsOwnCertificateAgain) {
    const auto held = add(store_.get(), people()[1].der);
    ASSERT_TRUE(setBlob(held.get(), 77, {1}));
    for (const DWORD rule : {capi::CERT_STORE_ADD_USE_EXISTING, capi::CERT_STORE_ADD_REPLACE_EXISTING}) {
        ASSERT_TRUE(api::CertAddCertificateContextToStore(store_.get(), held.get(), rule, nullptr));
        const Context found(api::CertEnumCertificatesInStore(store_.get(), nullptr));
        EXPECT_EQ(property(found.get(), 77), csp::Bytes{1});
        EXPECT_THAT(walk(store_.get()), ElementsAre(people()[1].der));
    }
}

TEST_P(AnyStore, ExistingIsTheVerySameCertificateAndNotOneOfItsIssuerAndNumber) {
    add(store_.get(), people()[1].der);
    const auto twin = contextOf(pki::make({.subject = "Second Person", .serial = 12}).der);
    EXPECT_EQ(find(capi::CERT_FIND_EXISTING, twin.get()), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND);
    EXPECT_NE(find(capi::CERT_FIND_EXISTING, contextOf(people()[1].der).get()), nullptr);
}

TEST_P(AnyStore, IsUsedByManyThreadsAtOnce) {
    constexpr int threads = 8;
    constexpr int rounds = 10;
    std::vector<std::thread> workers;
    std::atomic<int> found{0};
    for (int worker = 0; worker < threads; ++worker) {
        workers.emplace_back([&, worker] {
            for (int round = 0; round < rounds; ++round) {
                const auto held = add(store_.get(), people()[static_cast<std::size_t>(worker) % people().size()].der);
                setBlob(held.get(), 77, {static_cast<std::uint8_t>(round)});
                found += find(capi::CERT_FIND_EXISTING, held.get()) != nullptr ? 1 : 0;
                walk(store_.get());
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    EXPECT_EQ(found, threads * rounds);
    EXPECT_EQ(walk(store_.get()).size(), people().size());
    EXPECT_EQ(csp::liveContexts(), 0U);
}

TEST_P(AnyStore, SharesPropertiesBetweenTheContextsOfACertificate) {
    addPeople();
    const Context one(api::CertEnumCertificatesInStore(store_.get(), nullptr));
    const Context other(api::CertEnumCertificatesInStore(store_.get(), nullptr));
    ASSERT_NE(one.get(), other.get());
    ASSERT_TRUE(setBlob(one.get(), capi::CERT_FRIENDLY_NAME_PROP_ID, wideBytes(L"моя")));
    EXPECT_EQ(property(other.get(), capi::CERT_FRIENDLY_NAME_PROP_ID), wideBytes(L"моя"));
}

TEST_P(AnyStore, CopiesThePropertiesOfWhatIsAdded) {
    const auto source = contextOf(people()[0].der);
    ASSERT_TRUE(setBlob(source.get(), 77, {5}));
    ASSERT_TRUE(api::CertAddCertificateContextToStore(store_.get(), source.get(), capi::CERT_STORE_ADD_NEW, nullptr));
    ASSERT_TRUE(setBlob(source.get(), 77, {6}));
    const Context held(api::CertEnumCertificatesInStore(store_.get(), nullptr));
    EXPECT_EQ(property(held.get(), 77), csp::Bytes{5});
}

TEST_P(AnyStore, FindsByEveryKey) {
    addPeople();
    const pki::Entity& wanted = people()[2];
    const auto id = contextOf(wanted.der);
    auto hash = property(id.get(), capi::CERT_SHA1_HASH_PROP_ID);
    const CRYPT_HASH_BLOB hashBlob{20, hash.data()};
    const std::vector<std::pair<DWORD, const void*>> keys{
        {capi::CERT_FIND_SHA1_HASH, &hashBlob},
        {capi::CERT_FIND_SUBJECT_NAME, &id->pCertInfo->Subject},
        {capi::CERT_FIND_ISSUER_NAME, &id->pCertInfo->Issuer},
        {capi::CERT_FIND_PUBLIC_KEY, &id->pCertInfo->SubjectPublicKeyInfo},
        {capi::CERT_FIND_SUBJECT_STR, L"tHIRD"},
        {capi::CERT_FIND_SUBJECT_CERT, id->pCertInfo},
        {capi::CERT_FIND_EXISTING, id.get()},
    };
    for (const auto& [type, parameter] : keys) {
        Context found = find(type, parameter);
        ASSERT_NE(found, nullptr) << std::hex << type;
        EXPECT_EQ(csp::Bytes(found->pbCertEncoded, found->pbCertEncoded + found->cbCertEncoded), wanted.der);
        EXPECT_EQ(find(type, parameter, found.release()), nullptr) << std::hex << type;
        EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND);
        EXPECT_EQ(find(type, nullptr), nullptr);
        EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
    }
}

TEST_P(AnyStore, FindsASubjectInCyrillicWhateverItsCase) {
    addPeople();
    EXPECT_NE(find(capi::CERT_FIND_SUBJECT_STR, L"иВаНоВ"), nullptr);
    EXPECT_EQ(find(capi::CERT_FIND_SUBJECT_STR, L"Петров"), nullptr);
}

TEST_P(AnyStore, FindsTheSubjectCertificateByIssuerAndSerial) {
    addPeople();
    const auto id = contextOf(people()[1].der);
    const Context found(api::CertGetSubjectCertificateFromStore(store_.get(), encodings, id->pCertInfo));
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->cbCertEncoded, people()[1].der.size());
    CERT_INFO other = *id->pCertInfo;
    other.SerialNumber.cbData = 0;
    EXPECT_EQ(api::CertGetSubjectCertificateFromStore(store_.get(), encodings, &other), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND);
}

/// CERT_INFO of a signer that a message names by key identifier.
struct KeyIdentifierInfo {
    explicit KeyIdentifierInfo(const csp::Bytes& identifier) {
        const csp::Bytes oid{0x06, 0x0A, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x0A, 0x07, 0x01};
        const auto size = static_cast<std::uint8_t>(identifier.size());
        const auto attribute = static_cast<std::uint8_t>(oid.size() + 2U + size);
        issuer = {0x30, static_cast<std::uint8_t>(attribute + 4U),
                  0x31, static_cast<std::uint8_t>(attribute + 2U),
                  0x30, attribute};
        issuer.insert(issuer.end(), oid.begin(), oid.end());
        issuer.insert(issuer.end(), {0x04, size});
        issuer.insert(issuer.end(), identifier.begin(), identifier.end());
        info.Issuer = {static_cast<DWORD>(issuer.size()), issuer.data()};
        info.SerialNumber = {1, &zero};
    }
    csp::Bytes issuer;
    BYTE zero = 0;
    CERT_INFO info{};
};

TEST_P(AnyStore, FindsTheSubjectCertificateByKeyIdentifier) {
    addPeople();
    for (const pki::Entity& person : people()) { // the last has the extension, the others only the key
        const auto id = contextOf(person.der);
        KeyIdentifierInfo named(property(id.get(), capi::CERT_KEY_IDENTIFIER_PROP_ID));
        const Context found(api::CertGetSubjectCertificateFromStore(store_.get(), encodings, &named.info));
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(csp::Bytes(found->pbCertEncoded, found->pbCertEncoded + found->cbCertEncoded), person.der);
    }
    KeyIdentifierInfo nobody(csp::Bytes(20, 0x55));
    EXPECT_EQ(api::CertGetSubjectCertificateFromStore(store_.get(), encodings, &nobody.info), nullptr);
}

TEST_P(AnyStore, DeletesACertificateAndFreesItsContext) {
    addPeople();
    Context second = find(capi::CERT_FIND_SUBJECT_STR, L"second");
    ASSERT_TRUE(api::CertDeleteCertificateFromStore(second.release()));
    EXPECT_EQ(csp::liveContexts(), 0U);
    EXPECT_THAT(walk(store_.get()), ElementsAre(people()[0].der, people()[2].der));
}

TEST_P(AnyStore, AnswersThatACertificateIsGoneAndStillFreesItsContext) {
    addPeople();
    Context one = find(capi::CERT_FIND_SUBJECT_STR, L"second");
    Context other = find(capi::CERT_FIND_SUBJECT_STR, L"second");
    ASSERT_TRUE(api::CertDeleteCertificateFromStore(one.release()));
    EXPECT_FALSE(api::CertDeleteCertificateFromStore(other.release()));
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND);
    EXPECT_EQ(csp::liveContexts(), 0U);
}

TEST_P(AnyStore, IsWalkedToTheEndWhileItsCertificatesGoOrAreReplaced) {
    addPeople();
    std::size_t met = 0;
    PCCERT_CONTEXT context = nullptr;
    while ((context = api::CertEnumCertificatesInStore(store_.get(), context)) != nullptr) {
        ASSERT_LE(++met, people().size());
        api::CertAddCertificateContextToStore(store_.get(), context, capi::CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
        api::CertDeleteCertificateFromStore(api::CertDuplicateCertificateContext(context));
    }
    EXPECT_EQ(met, people().size());
}

TEST_P(AnyStore, LeavesItsContextsAliveWhenClosed) {
    const auto held = add(store_.get(), people()[0].der);
    const void* const stale = store_.get();
    ASSERT_TRUE(api::CertCloseStore(store_.release(), 0));
    EXPECT_EQ(held->cbCertEncoded, people()[0].der.size());
    EXPECT_TRUE(setBlob(held.get(), 77, {1}));
    EXPECT_FALSE(api::CertCloseStore(const_cast<void*>(stale), 0));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_HANDLE);
}

TEST_P(AnyStore, TellsOnRequestThatContextsOutliveIt) {
    auto held = add(store_.get(), people()[0].der);
    EXPECT_FALSE(api::CertCloseStore(store_.release(), capi::CERT_CLOSE_STORE_CHECK_FLAG));
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_PENDING_CLOSE);
}

class Stores : public ServiceTest {};

TEST_F(Stores, RefuseAnUnknownProvider) {
    EXPECT_EQ(api::CertOpenStore(storeProvider(77), 0, 0, 0, nullptr), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(api::CertOpenStore("Nowhere", 0, 0, 0, nullptr), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_FILE_NOT_FOUND);
    EXPECT_NE(StoreHandle(api::CertOpenStore("Memory", 0, 0, 0, nullptr)), nullptr);
}

TEST_F(Stores, RefuseChangesWhenOpenedForReading) {
    const StoreHandle store(api::CertOpenStore(storeProvider(capi::CERT_STORE_PROV_SYSTEM_A), 0, 0,
                                               0x00010000 | capi::CERT_STORE_READONLY_FLAG, "my"));
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(add(store.get(), people()[0].der), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_ACCESS_DENIED);
}

TEST_F(Stores, RefuseTheDeletionOfACertificateThatIsInNone) {
    EXPECT_FALSE(api::CertDeleteCertificateFromStore(contextOf(people()[0].der).release()));
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND);
    EXPECT_EQ(csp::liveContexts(), 0U);
}

TEST_F(Stores, InMemoryAreApartFromEachOther) {
    const auto one = memoryStore();
    const auto other = memoryStore();
    add(one.get(), people()[0].der);
    EXPECT_THAT(walk(other.get()), IsEmpty());
}

} // namespace
