// CryptGetProvParam, CryptSetProvParam, CryptGenRandom.

#include "providers.hpp"

#include <algorithm>
#include <cstring>

namespace conformance {

namespace {

using namespace capi;

class ProviderParam : public ConformanceTest, public testing::WithParamInterface<ProviderKind> {
protected:
    [[nodiscard]] static DWORD type() { return GetParam().type; }
    static Fetch param(unsigned long context, DWORD number, DWORD flags = 0) {
        return [=](void* buffer, DWORD* size) {
            return api().CryptGetProvParam(context, number, static_cast<BYTE*>(buffer), size, flags) != 0;
        };
    }
    static DWORD number(unsigned long context, DWORD param) {
        return as<DWORD>(walkSizes(ProviderParam::param(context, param)));
    }
    static std::string text(unsigned long context, DWORD param) {
        const Bytes value = walkSizes(ProviderParam::param(context, param));
        EXPECT_EQ(value.back(), 0U);
        return reinterpret_cast<const char*>(value.data());
    }
    /// Every container of the context's type, as callers list them.
    static std::vector<std::string> containers(unsigned long context, DWORD form) {
        std::vector<std::string> names;
        DWORD room = 0;
        if (api().CryptGetProvParam(context, PP_ENUMCONTAINERS, nullptr, &room, CRYPT_FIRST | form) == 0) {
            return names;
        }
        for (DWORD walk = CRYPT_FIRST;; walk = CRYPT_NEXT) {
            std::string name(room, '\0');
            DWORD size = room;
            if (api().CryptGetProvParam(context, PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name.data()), &size,
                                        walk | form) == 0) {
                EXPECT_EQ(api().GetLastError(), ERROR_NO_MORE_ITEMS);
                return names;
            }
            names.emplace_back(name.c_str());
        }
    }
    static std::vector<PROV_ENUMALGS> algorithms(unsigned long context) {
        std::vector<PROV_ENUMALGS> list;
        for (DWORD walk = CRYPT_FIRST;; walk = CRYPT_NEXT) {
            PROV_ENUMALGS row{};
            DWORD size = sizeof row;
            if (api().CryptGetProvParam(context, PP_ENUMALGS, reinterpret_cast<BYTE*>(&row), &size, walk) == 0) {
                return list;
            }
            EXPECT_EQ(size, sizeof row);
            list.push_back(row);
        }
    }
    static std::string narrow(const std::wstring& ascii) {
        std::string text;
        std::ranges::transform(ascii, std::back_inserter(text), [](wchar_t c) { return static_cast<char>(c); });
        return text;
    }
    static std::string lastComponent(const std::string& path) { return path.substr(path.find_last_of('/') + 1); }
};

constexpr DWORD unknownParam = 9999;

} // namespace

TEST_P(ProviderParam, RefusesWhatIsNoContext) {
    Context context = verifyContext(type());
    Hash hash;
    must(api().CryptCreateHash(context.get(), GetParam().hash, 0, 0, hash.address()) != 0, "creating a hash");
    DWORD size = 0;
    BYTE octet = 0;
    for (const unsigned long handle : notHandles({hash.get()})) {
        EXPECT_REFUSED(api().CryptGetProvParam(handle, PP_NAME, nullptr, &size, 0), BAD_PROVIDER) << handle;
        EXPECT_REFUSED(api().CryptSetProvParam(handle, PP_KEYEXCHANGE_PIN, &octet, 0), BAD_PROVIDER) << handle;
        EXPECT_REFUSED(api().CryptGenRandom(handle, 1, &octet), BAD_PROVIDER) << handle;
    }
    const Hash gone = std::move(hash);
    const unsigned long stale = context.release();
    api().CryptReleaseContext(stale, 0);
    EXPECT_REFUSED(api().CryptGetProvParam(stale, PP_NAME, nullptr, &size, 0), BAD_PROVIDER);
    EXPECT_REFUSED(api().CryptSetProvParam(stale, PP_KEYEXCHANGE_PIN, &octet, 0), BAD_PROVIDER);
    EXPECT_REFUSED(api().CryptGenRandom(stale, 1, &octet), BAD_PROVIDER);
}

TEST_P(ProviderParam, RefusesNullPointers) {
    const Context context = verifyContext(type());
    EXPECT_REFUSED(api().CryptGetProvParam(context.get(), PP_NAME, nullptr, nullptr, 0), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CryptSetProvParam(context.get(), PP_KEYEXCHANGE_PIN, nullptr, 0), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CryptGenRandom(context.get(), 1, nullptr), ERROR_INVALID_PARAMETER);
}

TEST_P(ProviderParam, RefusesUnknownParameters) {
    const Context context = verifyContext(type());
    DWORD size = 0;
    BYTE octet = 0;
    EXPECT_REFUSED(api().CryptGetProvParam(context.get(), unknownParam, nullptr, &size, 0), NTE_BAD_TYPE);
    EXPECT_REFUSED(api().CryptSetProvParam(context.get(), unknownParam, &octet, 0), NTE_BAD_TYPE);
}

TEST_P(ProviderParam, RefusesUnknownFlags) {
    constexpr DWORD unknown = 0x100;
    const Context context = verifyContext(type());
    DWORD size = 0;
    EXPECT_REFUSED(api().CryptGetProvParam(context.get(), PP_NAME, nullptr, &size, unknown), NTE_BAD_FLAGS);
    EXPECT_REFUSED(api().CryptGetProvParam(context.get(), PP_ENUMALGS, nullptr, &size, unknown), NTE_BAD_FLAGS);
    EXPECT_REFUSED(api().CryptGetProvParam(context.get(), PP_ENUMCONTAINERS, nullptr, &size, unknown), NTE_BAD_FLAGS);
}

TEST_P(ProviderParam, TellsTheNameThatWasEnumerated) {
    const auto offered = offeredProviders();
    const auto own = std::ranges::find(offered, type(), &OfferedProvider::type);
    Context context;
    must(api().CryptAcquireContextW(context.address(), nullptr,
                                    std::wstring(own->name.begin(), own->name.end()).c_str(), type(),
                                    CRYPT_VERIFYCONTEXT) != 0,
         "acquiring by name");
    EXPECT_EQ(text(context.get(), PP_NAME), own->name);
}

TEST_P(ProviderParam, TellsTypeImplementationAndVersion) {
    const Context context = verifyContext(type());
    EXPECT_EQ(number(context.get(), PP_PROVTYPE), type());
    constexpr DWORD knownImplementations = 0x1F; // hardware, software, mixed, unknown, removable
    EXPECT_NE(number(context.get(), PP_IMPTYPE) & knownImplementations, 0U);
    EXPECT_NE(number(context.get(), PP_VERSION) & 0xFFFFU, 0U);
    EXPECT_NE(number(context.get(), PP_KEYSPEC) & (AT_KEYEXCHANGE | AT_SIGNATURE), 0U);
}

TEST_P(ProviderParam, EnumeratesTheAlgorithmsOfItsType) {
    const Context context = verifyContext(type());
    const auto list = algorithms(context.get());
    EXPECT_EQ(api().GetLastError(), ERROR_NO_MORE_ITEMS);
    EXPECT_NE(std::ranges::find(list, GetParam().hash, &PROV_ENUMALGS::aiAlgid), list.end());
    EXPECT_NE(std::ranges::find(list, GetParam().signId, &PROV_ENUMALGS::aiAlgid), list.end());
    for (const PROV_ENUMALGS& row : list) {
        EXPECT_NE(row.dwBitLen, 0U) << row.aiAlgid;
        ASSERT_LE(row.dwNameLen, sizeof row.szName) << row.aiAlgid;
        EXPECT_EQ(strnlen(row.szName, sizeof row.szName) + 1, row.dwNameLen) << "the length counts the zero";
    }
}

TEST_P(ProviderParam, BeginsAnEnumerationAnew) {
    const Context context = verifyContext(type());
    const auto once = algorithms(context.get());
    const auto again = algorithms(context.get());
    ASSERT_FALSE(once.empty());
    ASSERT_EQ(once.size(), again.size());
    EXPECT_EQ(once.front().aiAlgid, again.front().aiAlgid);
}

TEST_P(ProviderParam, GivesTheSameAlgorithmAfterAShortBuffer) {
    const Context context = verifyContext(type());
    const auto list = algorithms(context.get());
    ASSERT_GT(list.size(), 1U);
    PROV_ENUMALGS row{};
    auto* const octets = reinterpret_cast<BYTE*>(&row);
    DWORD size = sizeof row - 1;
    EXPECT_REFUSED(api().CryptGetProvParam(context.get(), PP_ENUMALGS, octets, &size, CRYPT_FIRST), ERROR_MORE_DATA);
    EXPECT_EQ(size, sizeof row);
    EXPECT_ACCEPTED(api().CryptGetProvParam(context.get(), PP_ENUMALGS, octets, &size, CRYPT_NEXT));
    EXPECT_EQ(row.aiAlgid, list[0].aiAlgid);
}

TEST_P(ProviderParam, HasNoContainerNameWithoutAContainer) {
    const Context context = verifyContext(type());
    DWORD size = 0;
    EXPECT_EQ(api().CryptGetProvParam(context.get(), PP_CONTAINER, nullptr, &size, 0), 0);
    EXPECT_EQ(api().CryptGetProvParam(context.get(), PP_UNIQUE_CONTAINER, nullptr, &size, 0), 0);
}

TEST_P(ProviderParam, EnumeratesANewContainerUntilItIsDeleted) {
    const Context context = verifyContext(type());
    std::string name;
    {
        ThrowAway made(type(), {AT_KEYEXCHANGE});
        made.close();
        name = narrow(made.name());
        const auto plain = containers(context.get(), 0);
        EXPECT_EQ(std::ranges::count(plain, name), 1);
        const auto qualified = containers(context.get(), CRYPT_FQCN);
        EXPECT_EQ(qualified.size(), plain.size());
    }
    const auto left = containers(context.get(), 0);
    EXPECT_EQ(std::ranges::count(left, name), 0);
}

TEST_P(ProviderParam, QualifiesContainerNamesByAPathThatEndsInThePlainOne) {
    ThrowAway made(type(), {AT_KEYEXCHANGE});
    made.close();
    const Context context = verifyContext(type());
    const auto qualified = containers(context.get(), CRYPT_FQCN);
    const auto own = std::ranges::find(qualified, narrow(made.name()), lastComponent);
    ASSERT_NE(own, qualified.end());
    EXPECT_GT(own->size(), made.name().size());
    Context opened;
    EXPECT_ACCEPTED(api().CryptAcquireContextW(opened.address(), std::wstring(own->begin(), own->end()).c_str(),
                                               nullptr, type(), CRYPT_SILENT));
    EXPECT_EQ(text(opened.get(), PP_CONTAINER), narrow(made.name()));
}

TEST_P(ProviderParam, TellsAUniqueNameThatOpensTheContainer) {
    ThrowAway made(type(), {AT_SIGNATURE});
    made.close();
    const Context context = made.open();
    EXPECT_EQ(text(context.get(), PP_CONTAINER), narrow(made.name()));
    const std::string unique = text(context.get(), PP_UNIQUE_CONTAINER);
    Context opened;
    ASSERT_TRUE(accepts([&] {
        return api().CryptAcquireContextW(opened.address(), std::wstring(unique.begin(), unique.end()).c_str(), nullptr,
                                          type(), CRYPT_SILENT) != 0;
    }));
    EXPECT_EQ(text(opened.get(), PP_UNIQUE_CONTAINER), unique);
}

TEST_P(ProviderParam, FillsWithRandomOctets) {
    const Context context = verifyContext(type());
    constexpr std::size_t length = 64; // two equal ones of that size would be a broken generator
    Bytes first(length);
    Bytes second(length);
    EXPECT_ACCEPTED(api().CryptGenRandom(context.get(), length, first.data()));
    EXPECT_ACCEPTED(api().CryptGenRandom(context.get(), length, second.data()));
    EXPECT_NE(first, second);
    EXPECT_NE(first, Bytes(length));
    EXPECT_ACCEPTED(api().CryptGenRandom(context.get(), 0, first.data()));
}

INSTANTIATE_TEST_SUITE_P(Providers, ProviderParam, testing::ValuesIn(offeredKinds()), nameOfType<ProviderKind>);

} // namespace conformance
