// PP_ENUMALGS and PP_ENUMCONTAINERS.

#include "service.hpp"

#include <cstring>
#include <map>

namespace csp_keys {

namespace {

class Enumerations : public ServiceTest {};

constexpr DWORD gost = capi::PROV_GOST_2012_256;

std::map<ALG_ID, PROV_ENUMALGS> algorithmsOf(DWORD type) {
    const Context context(type, nullptr, verifyOnly);
    std::map<ALG_ID, PROV_ENUMALGS> found;
    PROV_ENUMALGS row{};
    DWORD size = sizeof row;
    DWORD which = capi::CRYPT_FIRST;
    while (CryptGetProvParam(context.get(), capi::PP_ENUMALGS, reinterpret_cast<BYTE*>(&row), &size, which) != 0) {
        EXPECT_EQ(size, 32U);
        EXPECT_EQ(row.dwNameLen, std::strlen(row.szName) + 1);
        EXPECT_TRUE(found.emplace(row.aiAlgid, row).second);
        which = capi::CRYPT_NEXT;
    }
    EXPECT_EQ(GetLastError(), capi::ERROR_NO_MORE_ITEMS);
    return found;
}

} // namespace

TEST_F(Enumerations, AlgorithmsOfEachProvider) {
    const auto of256 = algorithmsOf(80);
    EXPECT_EQ(of256.size(), 9U);
    EXPECT_EQ(of256.at(capi::CALG_GR3410_12_256).dwBitLen, 256U);
    EXPECT_EQ(of256.at(capi::CALG_GR3411_2012_512).dwBitLen, 512U);
    EXPECT_TRUE(of256.contains(capi::CALG_DH_GR3410_12_256_SF));
    EXPECT_TRUE(algorithmsOf(81).contains(capi::CALG_GR3410_12_512));
    EXPECT_TRUE(algorithmsOf(75).contains(capi::CALG_GR3410EL));
    const auto rsa = algorithmsOf(24);
    EXPECT_EQ(rsa.size(), 6U);
    EXPECT_EQ(rsa.at(capi::CALG_RSA_SIGN).dwBitLen, 2048U);
    EXPECT_FALSE(rsa.contains(capi::CALG_GR3411_2012_256));
}

TEST_F(Enumerations, ShortBufferGetsTheSameItemAgain) {
    const Context context(gost, nullptr, verifyOnly);
    Bytes first(32);
    Bytes again(32);
    DWORD size = 31;
    EXPECT_TRUE(refused(CryptGetProvParam(context.get(), capi::PP_ENUMALGS, first.data(), &size, capi::CRYPT_FIRST),
                        capi::ERROR_MORE_DATA));
    EXPECT_EQ(size, 32U);
    ASSERT_TRUE(CryptGetProvParam(context.get(), capi::PP_ENUMALGS, first.data(), &size, capi::CRYPT_NEXT));
    ASSERT_TRUE(CryptGetProvParam(context.get(), capi::PP_ENUMALGS, again.data(), &size, capi::CRYPT_FIRST));
    EXPECT_EQ(first, again);
    EXPECT_TRUE(
        refused(CryptGetProvParam(context.get(), capi::PP_ENUMALGS, first.data(), &size, 0), capi::NTE_BAD_FLAGS));
    EXPECT_TRUE(
        refused(CryptGetProvParam(context.get(), capi::PP_ENUMALGS, first.data(), &size, 3), capi::NTE_BAD_FLAGS));
}

TEST_F(Enumerations, NoContainersAreNoItems) {
    const Context context(gost, nullptr, verifyOnly);
    DWORD size = 0;
    EXPECT_TRUE(refused(
        CryptGetProvParam(context.get(), capi::PP_ENUMCONTAINERS, nullptr, &size, capi::CRYPT_FIRST | capi::CRYPT_FQCN),
        capi::ERROR_NO_MORE_ITEMS));
}

TEST_F(Enumerations, ContainersThatCannotBeLookedForAreNotNone) {
    const Context context(gost, nullptr, verifyOnly);
    const test_support::TempFolder folder;
    ::setenv("KLUNORTREDI_HOME", folder.write("file", "").c_str(), 1);
    DWORD size = 0;
    EXPECT_TRUE(refused(
        CryptGetProvParam(context.get(), capi::PP_ENUMCONTAINERS, nullptr, &size, capi::CRYPT_FIRST | capi::CRYPT_FQCN),
        capi::ERROR_PATH_NOT_FOUND));
}

TEST_F(Enumerations, ContainersByPlainAndByQualifiedName) {
    makeContainer(gost, L"b", "");
    makeContainer(gost, cyrillicWide, "");
    makeContainer(gost, L"a", "");
    makeContainer(81, L"elsewhere", "");
    const std::vector<std::string> plain{"a", "b", cyrillic};
    EXPECT_EQ(containerNames(gost, 0), plain);
    const std::vector<std::string> qualified = containerNames(gost, capi::CRYPT_FQCN);
    ASSERT_EQ(qualified.size(), 3U);
    for (std::size_t i = 0; i < plain.size(); ++i) {
        EXPECT_EQ(std::filesystem::path(qualified[i]).filename().string(), plain[i]);
    }
    EXPECT_EQ(containerNames(81, 0), std::vector<std::string>{"elsewhere"});
}

TEST_F(Enumerations, SizeQueryIsForTheLongestName) {
    makeContainer(gost, L"a", "");
    makeContainer(gost, L"much longer", "");
    const Context context(gost, nullptr, verifyOnly);
    DWORD size = 0;
    ASSERT_TRUE(CryptGetProvParam(context.get(), capi::PP_ENUMCONTAINERS, nullptr, &size, capi::CRYPT_FIRST));
    EXPECT_EQ(size, std::string("much longer").size() + 1);
}

TEST_F(Enumerations, ContainerCountsFromItsFirstKeyPairOn) {
    const Context making(gost, L"new", capi::CRYPT_NEWKEYSET);
    EXPECT_TRUE(containerNames(gost, 0).empty()) << "it has no key yet";
    unsigned long key = 0;
    ASSERT_TRUE(CryptGenKey(making.get(), capi::AT_KEYEXCHANGE, 0, &key));
    const Key owner(key);
    EXPECT_EQ(containerNames(gost, 0), std::vector<std::string>{"new"});
}

} // namespace csp_keys
