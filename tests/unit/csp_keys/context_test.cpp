// Provider contexts: acquiring, counting references, releasing.

#include "keys/providers.hpp"
#include "service.hpp"

#include <map>

namespace csp_keys {

namespace {

class Contexts : public ServiceTest {
protected:
    static BOOL acquire(const wchar_t* container, const wchar_t* provider, DWORD type, DWORD flags) {
        unsigned long handle = 0;
        const BOOL result = CryptAcquireContextW(&handle, container, provider, type, flags);
        if (result != 0 && handle != 0) {
            CryptReleaseContext(handle, 0);
        }
        return result;
    }
};

constexpr DWORD gost = capi::PROV_GOST_2012_256;
constexpr const wchar_t* gostName = L"Klunortredi GOST R 34.10-2012 (256) Cryptographic Service Provider";

} // namespace

TEST_F(Contexts, ProvidersAreEnumeratedToTheEnd) {
    std::map<DWORD, std::string> found;
    DWORD index = 0;
    while (true) {
        DWORD type = 0;
        DWORD size = 0;
        if (CryptEnumProviders(index, nullptr, 0, &type, nullptr, &size) == 0) {
            break;
        }
        std::string name(size, '\0');
        DWORD less = size - 1;
        EXPECT_TRUE(refused(CryptEnumProviders(index, nullptr, 0, &type, name.data(), &less), capi::ERROR_MORE_DATA));
        EXPECT_EQ(less, size);
        ASSERT_TRUE(CryptEnumProviders(index, nullptr, 0, &type, name.data(), &size));
        EXPECT_EQ(name.back(), '\0');
        name.pop_back();
        found[type] = name;
        ++index;
    }
    EXPECT_EQ(GetLastError(), capi::ERROR_NO_MORE_ITEMS);
    EXPECT_EQ(found.size(), 4U);
    EXPECT_EQ(found[80], "Klunortredi GOST R 34.10-2012 (256) Cryptographic Service Provider");
    EXPECT_EQ(found[81], "Klunortredi GOST R 34.10-2012 (512) Cryptographic Service Provider");
    EXPECT_EQ(found[75], "Klunortredi GOST R 34.10-2001 Cryptographic Service Provider");
    EXPECT_EQ(found[24], "Klunortredi RSA and AES Cryptographic Service Provider");
}

TEST_F(Contexts, EmptyProviderNameMeansTheDefaultOfTheType) {
    for (const wchar_t* name : {static_cast<const wchar_t*>(nullptr), L""}) {
        for (const auto& row : klunortredi::csp::providers) {
            EXPECT_TRUE(acquire(nullptr, name, row.type, verifyOnly));
        }
    }
    EXPECT_TRUE(acquire(nullptr, gostName, gost, verifyOnly));
}

TEST_F(Contexts, ProviderNameAndTypeMustBelongTogether) {
    EXPECT_TRUE(refused(acquire(nullptr, nullptr, 0, verifyOnly), capi::NTE_BAD_PROV_TYPE));
    EXPECT_TRUE(refused(acquire(nullptr, nullptr, 1000, verifyOnly), capi::NTE_BAD_PROV_TYPE));
    EXPECT_TRUE(refused(acquire(nullptr, nullptr, 1, verifyOnly), capi::NTE_PROV_TYPE_NOT_DEF));
    EXPECT_TRUE(refused(acquire(nullptr, L"Nobody's", gost, verifyOnly), capi::NTE_KEYSET_NOT_DEF));
    EXPECT_TRUE(refused(acquire(nullptr, gostName, 81, verifyOnly), capi::NTE_PROV_TYPE_NO_MATCH));
}

TEST_F(Contexts, FlagsThatMeanNothingAreRefused) {
    for (const DWORD flags : {1U, 0x20U, 0x80U, 0x10000000U, capi::CRYPT_NEWKEYSET | capi::CRYPT_DELETEKEYSET,
                              capi::CRYPT_VERIFYCONTEXT | capi::CRYPT_NEWKEYSET}) {
        EXPECT_TRUE(refused(acquire(L"x", nullptr, gost, flags), capi::NTE_BAD_FLAGS)) << std::hex << flags;
    }
}

TEST_F(Contexts, VerificationContextHasNoContainer) {
    EXPECT_TRUE(refused(acquire(L"x", nullptr, gost, verifyOnly), capi::NTE_BAD_KEYSET_PARAM));
    const Context context(gost, nullptr, verifyOnly);
    DWORD size = 0;
    EXPECT_TRUE(refused(CryptGetProvParam(context.get(), capi::PP_CONTAINER, nullptr, &size, 0), capi::NTE_BAD_KEYSET));
    EXPECT_TRUE(refused(setPin(context.get(), "1", capi::PIN_PRESENT), capi::NTE_BAD_KEYSET));
    unsigned long key = 0;
    EXPECT_TRUE(refused(CryptGetUserKey(context.get(), capi::AT_KEYEXCHANGE, &key), capi::NTE_NO_KEY));
    EXPECT_TRUE(refused(CryptGenKey(context.get(), capi::AT_KEYEXCHANGE, 0, &key), capi::NTE_PERM));
}

TEST_F(Contexts, MissingContainerIsToldApartFromImpossibleName) {
    EXPECT_TRUE(refused(acquire(L"none", nullptr, gost, 0), capi::NTE_BAD_KEYSET));
    EXPECT_TRUE(refused(acquire(nullptr, nullptr, gost, 0), capi::NTE_BAD_KEYSET)) << "there is no default container";
    EXPECT_TRUE(refused(acquire(L"none", nullptr, gost, capi::CRYPT_DELETEKEYSET), capi::NTE_BAD_KEYSET));
    EXPECT_TRUE(refused(acquire(L"a/b", nullptr, gost, 0), capi::NTE_BAD_KEYSET_PARAM));
    EXPECT_TRUE(refused(acquire(nullptr, nullptr, gost, capi::CRYPT_NEWKEYSET), capi::NTE_BAD_KEYSET_PARAM));
    EXPECT_TRUE(refused(acquire(nullptr, nullptr, gost, capi::CRYPT_DELETEKEYSET), capi::NTE_BAD_KEYSET_PARAM));
    EXPECT_TRUE(refused(acquire(L"日本", nullptr, gost, capi::CRYPT_NEWKEYSET), capi::NTE_BAD_KEYSET_PARAM));
    EXPECT_TRUE(acquire(L"日本", nullptr, capi::PROV_RSA_AES, capi::CRYPT_NEWKEYSET));
}

TEST_F(Contexts, LivesUntilItsLastReference) {
    unsigned long handle = 0;
    ASSERT_TRUE(CryptAcquireContextW(&handle, nullptr, nullptr, gost, verifyOnly));
    ASSERT_TRUE(CryptContextAddRef(handle, nullptr, 0));
    ASSERT_TRUE(CryptReleaseContext(handle, 0));
    EXPECT_EQ(provNumber(handle, capi::PP_PROVTYPE), gost);
    ASSERT_TRUE(CryptReleaseContext(handle, 0));
    EXPECT_TRUE(refused(CryptReleaseContext(handle, 0), capi::ERROR_INVALID_HANDLE));
    EXPECT_TRUE(refused(CryptContextAddRef(handle, nullptr, 0), capi::ERROR_INVALID_HANDLE));
    unsigned long other = 0;
    ASSERT_TRUE(CryptAcquireContextW(&other, nullptr, nullptr, gost, verifyOnly));
    EXPECT_NE(other, handle) << "a stale handle must not come to life again";
    CryptReleaseContext(other, 0);
}

TEST_F(Contexts, HashesAndKeysOfAReleasedProviderAreDead) {
    makeContainer(gost, L"c", "");
    Context context(gost, L"c", 0);
    unsigned long key = 0;
    ASSERT_TRUE(CryptGetUserKey(context.get(), capi::AT_KEYEXCHANGE, &key));
    unsigned long hash = 0;
    ASSERT_TRUE(CryptCreateHash(context.get(), capi::CALG_GR3411_2012_256, 0, 0, &hash));
    context.release();
    DWORD size = 0;
    EXPECT_TRUE(refused(CryptHashData(hash, nullptr, 0, 0), capi::NTE_BAD_UID));
    EXPECT_TRUE(refused(CryptGetHashParam(hash, capi::HP_HASHVAL, nullptr, &size, 0), capi::NTE_BAD_UID));
    EXPECT_TRUE(refused(CryptSignHashW(hash, 1, nullptr, 0, nullptr, &size), capi::NTE_BAD_UID));
    EXPECT_TRUE(refused(CryptGetKeyParam(key, capi::KP_ALGID, nullptr, &size, 0), capi::NTE_BAD_UID));
    EXPECT_TRUE(CryptDestroyHash(hash));
    EXPECT_TRUE(CryptDestroyKey(key));
}

TEST_F(Contexts, TellWhatTheyAre) {
    const Context context(81, nullptr, verifyOnly);
    EXPECT_EQ(provText(context.get(), capi::PP_NAME),
              "Klunortredi GOST R 34.10-2012 (512) Cryptographic Service Provider");
    EXPECT_EQ(provNumber(context.get(), capi::PP_PROVTYPE), 81U);
    EXPECT_EQ(provNumber(context.get(), capi::PP_VERSION), 0x0001U);
    EXPECT_EQ(provNumber(context.get(), capi::PP_IMPTYPE), capi::CRYPT_IMPL_SOFTWARE);
    EXPECT_EQ(provNumber(context.get(), capi::PP_KEYSPEC), 3U);
    DWORD size = 0;
    EXPECT_TRUE(refused(CryptGetProvParam(context.get(), capi::PP_ENUMALGS_EX, nullptr, &size, 1), capi::NTE_BAD_TYPE));
    EXPECT_TRUE(refused(CryptGetProvParam(context.get(), capi::PP_NAME, nullptr, &size, 1), capi::NTE_BAD_FLAGS));
}

TEST_F(Contexts, RandomOctetsDiffer) {
    const Context context(gost, nullptr, verifyOnly);
    Bytes one(32);
    Bytes other(32);
    ASSERT_TRUE(CryptGenRandom(context.get(), 32, one.data()));
    ASSERT_TRUE(CryptGenRandom(context.get(), 32, other.data()));
    EXPECT_NE(one, other);
    EXPECT_NE(one, Bytes(32));
    EXPECT_TRUE(CryptGenRandom(context.get(), 0, nullptr));
    EXPECT_TRUE(refused(CryptGenRandom(context.get(), 1, nullptr), capi::ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(refused(CryptGenRandom(0, 32, one.data()), capi::ERROR_INVALID_HANDLE));
}

} // namespace csp_keys
