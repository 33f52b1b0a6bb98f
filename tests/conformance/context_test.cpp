// CryptEnumProviders, CryptAcquireContextW, CryptReleaseContext, CryptContextAddRef.

#include "providers.hpp"

#include <algorithm>
#include <set>

namespace conformance {

namespace {

using namespace capi;

class Enumeration : public ConformanceTest {};
class ContextOf : public ConformanceTest, public testing::WithParamInterface<ProviderKind> {
protected:
    [[nodiscard]] static DWORD type() { return GetParam().type; }
    bool acquire(const wchar_t* container, const wchar_t* provider, DWORD providerType, DWORD flags) {
        out_ = Context();
        return api().CryptAcquireContextW(out_.address(), container, provider, providerType, flags) != 0;
    }
    Context out_;
};

/// More than any service has providers.
constexpr DWORD pastTheEnd = 100'000;
constexpr DWORD typeOfNobody = 998;
constexpr DWORD notAType = 1'000'000;

std::wstring wide(const std::string& text) {
    return {text.begin(), text.end()};
}

} // namespace

TEST_F(Enumeration, RefusesNullPointers) {
    DWORD type = 0;
    DWORD size = 0;
    EXPECT_REFUSED(api().CryptEnumProviders(0, nullptr, 0, nullptr, nullptr, &size), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CryptEnumProviders(0, nullptr, 0, &type, nullptr, nullptr), ERROR_INVALID_PARAMETER);
}

TEST_F(Enumeration, RefusesAReservedPointer) {
    DWORD type = 0;
    DWORD size = 0;
    EXPECT_REFUSED(api().CryptEnumProviders(0, &size, 0, &type, nullptr, &size), ERROR_INVALID_PARAMETER);
}

TEST_F(Enumeration, RefusesFlags) {
    DWORD type = 0;
    DWORD size = 0;
    EXPECT_REFUSED(api().CryptEnumProviders(0, nullptr, 1, &type, nullptr, &size), NTE_BAD_FLAGS);
}

TEST_F(Enumeration, EndsWithNoMoreItems) {
    DWORD type = 0;
    DWORD size = 0;
    EXPECT_REFUSED(api().CryptEnumProviders(pastTheEnd, nullptr, 0, &type, nullptr, &size), ERROR_NO_MORE_ITEMS);
    const auto count = static_cast<DWORD>(offeredProviders().size());
    EXPECT_REFUSED(api().CryptEnumProviders(count, nullptr, 0, &type, nullptr, &size), ERROR_NO_MORE_ITEMS);
}

TEST_F(Enumeration, WalksTheSizesOfAName) {
    DWORD type = 0;
    const Bytes name = walkSizes([&](void* buffer, DWORD* size) {
        return api().CryptEnumProviders(0, nullptr, 0, &type, static_cast<char*>(buffer), size) != 0;
    });
    EXPECT_EQ(name.back(), 0U);
    EXPECT_EQ(std::count(name.begin(), name.end(), 0), 1) << "the size counts the zero and nothing behind it";
    EXPECT_NE(type, 0U);
}

TEST_F(Enumeration, OffersAProviderOfAKindThatCallersUse) {
    EXPECT_FALSE(offeredKinds().empty());
}

TEST_F(Enumeration, NamesEveryProviderOnce) {
    std::set<std::string> names;
    for (const OfferedProvider& provider : offeredProviders()) {
        EXPECT_FALSE(provider.name.empty());
        EXPECT_TRUE(names.insert(provider.name).second) << provider.name;
    }
    EXPECT_FALSE(names.empty());
}

TEST_F(Enumeration, GivesNamesThatOpenTheProvider) {
    for (const OfferedProvider& provider : offeredProviders()) {
        Context context;
        EXPECT_ACCEPTED(api().CryptAcquireContextW(context.address(), nullptr, wide(provider.name).c_str(),
                                                   provider.type, CRYPT_VERIFYCONTEXT | CRYPT_SILENT))
            << provider.name;
    }
}

TEST_F(Enumeration, RefusesToAcquireTypesThatNobodyHas) {
    Context context;
    EXPECT_REFUSED(api().CryptAcquireContextW(context.address(), nullptr, nullptr, 0, CRYPT_VERIFYCONTEXT),
                   NTE_BAD_PROV_TYPE);
    EXPECT_REFUSED(api().CryptAcquireContextW(context.address(), nullptr, nullptr, notAType, CRYPT_VERIFYCONTEXT),
                   NTE_BAD_PROV_TYPE);
    EXPECT_REFUSED(api().CryptAcquireContextW(context.address(), nullptr, nullptr, typeOfNobody, CRYPT_VERIFYCONTEXT),
                   NTE_PROV_TYPE_NOT_DEF);
}

TEST_P(ContextOf, RefusesANullHandlePointer) {
    EXPECT_REFUSED(api().CryptAcquireContextW(nullptr, nullptr, nullptr, type(), CRYPT_VERIFYCONTEXT),
                   ERROR_INVALID_PARAMETER);
}

TEST_P(ContextOf, RefusesAnUnknownProviderName) {
    EXPECT_REFUSED(acquire(nullptr, L"no such provider", type(), CRYPT_VERIFYCONTEXT), NTE_KEYSET_NOT_DEF);
}

TEST_P(ContextOf, RefusesANameOfAnotherType) {
    const auto offered = offeredProviders();
    const auto other = std::ranges::find_if(offered, [](const auto& p) { return p.type != type(); });
    ASSERT_NE(other, offered.end());
    EXPECT_REFUSED(acquire(nullptr, wide(other->name).c_str(), type(), CRYPT_VERIFYCONTEXT), NTE_PROV_TYPE_NO_MATCH);
}

TEST_P(ContextOf, RefusesUnknownFlags) {
    constexpr DWORD unknown = 0x00000004;
    EXPECT_REFUSED(acquire(nullptr, nullptr, type(), CRYPT_VERIFYCONTEXT | unknown), NTE_BAD_FLAGS);
}

TEST_P(ContextOf, RefusesAContainerWithoutKeys) {
    EXPECT_REFUSED(acquire(unusedName().c_str(), nullptr, type(), CRYPT_VERIFYCONTEXT | CRYPT_SILENT),
                   NTE_BAD_KEYSET_PARAM, NTE_BAD_FLAGS);
}

TEST_P(ContextOf, RefusesAContainerThatIsNotThere) {
    EXPECT_REFUSED(acquire(unusedName().c_str(), nullptr, type(), CRYPT_SILENT), NTE_BAD_KEYSET);
    EXPECT_REFUSED(acquire(unusedName().c_str(), nullptr, type(), CRYPT_DELETEKEYSET | CRYPT_SILENT), NTE_BAD_KEYSET);
}

TEST_P(ContextOf, OpensAsOftenAsAsked) {
    const Context first = verifyContext(type());
    const Context second = verifyContext(type());
    EXPECT_NE(first.get(), 0U);
    EXPECT_NE(first.get(), second.get());
}

TEST_P(ContextOf, MakesOpensAndDeletesAContainer) {
    ThrowAway made(type(), {AT_KEYEXCHANGE});
    made.close();
    EXPECT_ACCEPTED(acquire(made.name().c_str(), nullptr, type(), CRYPT_SILENT));
    EXPECT_REFUSED(acquire(made.name().c_str(), nullptr, type(), CRYPT_NEWKEYSET | CRYPT_SILENT), NTE_EXISTS);
    out_ = Context();
    unsigned long deleted = 0;
    EXPECT_ACCEPTED(
        api().CryptAcquireContextW(&deleted, made.name().c_str(), nullptr, type(), CRYPT_DELETEKEYSET | CRYPT_SILENT));
    EXPECT_REFUSED(acquire(made.name().c_str(), nullptr, type(), CRYPT_SILENT), NTE_BAD_KEYSET);
}

TEST_P(ContextOf, DeletesWithoutGivingAHandleThatWorks) {
    ThrowAway made(type(), {AT_SIGNATURE});
    made.close();
    unsigned long deleted = 0;
    ASSERT_TRUE(accepts([&] {
        return api().CryptAcquireContextW(&deleted, made.name().c_str(), nullptr, type(),
                                          CRYPT_DELETEKEYSET | CRYPT_SILENT) != 0;
    }));
    EXPECT_REFUSED(api().CryptReleaseContext(deleted, 0), BAD_PROVIDER);
}

TEST_P(ContextOf, RefusesToReleaseWhatIsNoContext) {
    const Context context = verifyContext(type());
    Hash hash;
    must(api().CryptCreateHash(context.get(), GetParam().hash, 0, 0, hash.address()) != 0, "creating a hash");
    for (const unsigned long handle : notHandles({hash.get()})) {
        EXPECT_REFUSED(api().CryptReleaseContext(handle, 0), BAD_PROVIDER) << handle;
        EXPECT_REFUSED(api().CryptContextAddRef(handle, nullptr, 0), BAD_PROVIDER) << handle;
    }
}

TEST_P(ContextOf, RefusesAStaleHandle) {
    Context context = verifyContext(type());
    const unsigned long stale = context.release();
    EXPECT_ACCEPTED(api().CryptReleaseContext(stale, 0));
    EXPECT_REFUSED(api().CryptReleaseContext(stale, 0), BAD_PROVIDER);
    EXPECT_REFUSED(api().CryptContextAddRef(stale, nullptr, 0), BAD_PROVIDER);
}

TEST_P(ContextOf, RefusesReleasingWithFlags) {
    Context context = verifyContext(type());
    // The documentation lets the context go in spite of the refusal: a second reference keeps the clean-up right.
    must(api().CryptContextAddRef(context.get(), nullptr, 0) != 0, "adding a reference");
    EXPECT_REFUSED(api().CryptReleaseContext(context.get(), 1), NTE_BAD_FLAGS);
}

TEST_P(ContextOf, RefusesReservedArgumentsOfAddRef) {
    const Context context = verifyContext(type());
    DWORD reserved = 0;
    EXPECT_REFUSED(api().CryptContextAddRef(context.get(), &reserved, 0), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CryptContextAddRef(context.get(), nullptr, 1), NTE_BAD_FLAGS);
}

TEST_P(ContextOf, LivesUntilItsLastReferenceGoes) {
    Context context = verifyContext(type());
    const unsigned long handle = context.release();
    ASSERT_TRUE(accepts([&] { return api().CryptContextAddRef(handle, nullptr, 0) != 0; }));
    EXPECT_ACCEPTED(api().CryptReleaseContext(handle, 0));
    BYTE octet = 0;
    EXPECT_ACCEPTED(api().CryptGenRandom(handle, 1, &octet));
    EXPECT_ACCEPTED(api().CryptReleaseContext(handle, 0));
    EXPECT_REFUSED(api().CryptGenRandom(handle, 1, &octet), BAD_PROVIDER);
}

INSTANTIATE_TEST_SUITE_P(Providers, ContextOf, testing::ValuesIn(offeredKinds()), nameOfType<ProviderKind>);

} // namespace conformance
