// Hash objects: states, signatures, byte order.

#include "crypto/algorithms.hpp"
#include "service.hpp"

#include <algorithm>

namespace csp_keys {

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;
constexpr ALG_ID streebog = capi::CALG_GR3411_2012_256;

class Hashes : public ServiceTest {
protected:
    static BOOL verify(unsigned long hHash, const Bytes& signature, unsigned long hKey) {
        return CryptVerifySignatureW(hHash, signature.data(), static_cast<DWORD>(signature.size()), hKey, nullptr, 0);
    }
    static unsigned long userKey(unsigned long hProv, DWORD keySpec = capi::AT_KEYEXCHANGE) {
        unsigned long key = 0;
        EXPECT_TRUE(CryptGetUserKey(hProv, keySpec, &key));
        return key;
    }
    static unsigned long imported(unsigned long hProv, CERT_PUBLIC_KEY_INFO* info) {
        unsigned long key = 0;
        EXPECT_TRUE(CryptImportPublicKeyInfo(hProv, capi::X509_AND_PKCS_7, info, &key));
        return key;
    }
};

} // namespace

TEST_F(Hashes, TellWhatTheyAre) {
    const Context context(gost, nullptr, verifyOnly);
    const Hash hash(context.get(), capi::CALG_GR3411_2012_512);
    for (const auto& [param, expected] :
         {std::pair{capi::HP_ALGID, capi::CALG_GR3411_2012_512}, {capi::HP_HASHSIZE, 64U}}) {
        DWORD value = 0;
        DWORD size = sizeof value;
        ASSERT_TRUE(CryptGetHashParam(hash.get(), param, reinterpret_cast<BYTE*>(&value), &size, 0));
        EXPECT_EQ(value, expected);
    }
    DWORD size = 0;
    EXPECT_TRUE(refused(CryptGetHashParam(hash.get(), 99, nullptr, &size, 0), capi::NTE_BAD_TYPE));
}

TEST_F(Hashes, ReadingFinishesAndSizeQueriesDoNot) {
    const Context context(gost, nullptr, verifyOnly);
    const Hash hash(context.get(), streebog, bytes("ab"));
    DWORD size = 0;
    ASSERT_TRUE(CryptGetHashParam(hash.get(), capi::HP_HASHVAL, nullptr, &size, 0));
    Bytes small(31);
    size = 31;
    EXPECT_TRUE(
        refused(CryptGetHashParam(hash.get(), capi::HP_HASHVAL, small.data(), &size, 0), capi::ERROR_MORE_DATA));
    EXPECT_EQ(size, 32U);
    ASSERT_TRUE(CryptHashData(hash.get(), bytes("c").data(), 1, 0)) << "neither finishes it";
    const Bytes value = hash.value();
    EXPECT_EQ(value, Hash(context.get(), streebog, bytes("abc")).value());
    EXPECT_EQ(hash.value(), value) << "can be read again";
    EXPECT_TRUE(refused(CryptHashData(hash.get(), bytes("d").data(), 1, 0), capi::NTE_BAD_HASH_STATE));
}

TEST_F(Hashes, SignatureSizeNeedsNoPinAndFinishesNothing) {
    makeContainer(gost, L"c", "1234");
    const Context context(gost, L"c", 0);
    const Hash hash(context.get(), streebog);
    DWORD size = 0;
    ASSERT_TRUE(CryptSignHashW(hash.get(), capi::AT_KEYEXCHANGE, nullptr, 0, nullptr, &size));
    EXPECT_EQ(size, 64U);
    Bytes small(63);
    size = 63;
    EXPECT_TRUE(refused(CryptSignHashW(hash.get(), 1, nullptr, 0, small.data(), &size), capi::ERROR_MORE_DATA));
    Bytes signature(64);
    EXPECT_TRUE(refused(CryptSignHashW(hash.get(), 1, nullptr, 0, signature.data(), &size),
                        capi::SCARD_W_CARD_NOT_AUTHENTICATED));
    EXPECT_TRUE(CryptHashData(hash.get(), bytes("abc").data(), 3, 0));
    ASSERT_TRUE(setPin(context.get(), "1234", capi::PIN_PRESENT));
    ASSERT_TRUE(CryptSignHashW(hash.get(), 1, nullptr, 0, signature.data(), &size));
    EXPECT_TRUE(refused(CryptHashData(hash.get(), bytes("d").data(), 1, 0), capi::NTE_BAD_HASH_STATE));
}

TEST_F(Hashes, SignedOnesVerifyWithThePairAndWithTheImportedKey) {
    for (const auto& [type, algorithm] : {std::pair{80U, streebog},
                                          {81U, capi::CALG_GR3411_2012_512},
                                          {75U, capi::CALG_GR3411},
                                          {24U, capi::CALG_SHA_256},
                                          {24U, capi::CALG_SHA_512}}) {
        const std::wstring name = L"c" + std::to_wstring(algorithm);
        makeContainer(type, name.c_str(), "");
        const Context context(type, name.c_str(), 0);
        const Hash hash(context.get(), algorithm, bytes("abc"));
        const Bytes signature = sign(hash.get(), capi::AT_KEYEXCHANGE);
        PublicKeyInfo info(context.get(), capi::AT_KEYEXCHANGE);
        const Context verifier(type, nullptr, verifyOnly);
        const Key pair(userKey(context.get()));
        const Key single(imported(verifier.get(), info.get()));
        const Hash same(verifier.get(), algorithm, bytes("abc"));
        EXPECT_TRUE(verify(hash.get(), signature, pair.get()));
        EXPECT_TRUE(verify(same.get(), signature, single.get()));

        const Hash other(verifier.get(), algorithm, bytes("abd"));
        EXPECT_TRUE(refused(verify(other.get(), signature, single.get()), capi::NTE_BAD_SIGNATURE));
        for (std::size_t i = 0; i < signature.size(); i += 7) {
            Bytes changed = signature;
            changed[i] ^= 1;
            EXPECT_TRUE(refused(verify(same.get(), changed, single.get()), capi::NTE_BAD_SIGNATURE)) << i;
        }
        Bytes longer = signature;
        longer.push_back(0);
        EXPECT_TRUE(refused(verify(same.get(), longer, single.get()), capi::NTE_BAD_SIGNATURE));
        EXPECT_TRUE(refused(verify(same.get(), {}, single.get()), capi::NTE_BAD_SIGNATURE));
    }
}

TEST_F(Hashes, AlgorithmMustSuitTheProviderAndTheKey) {
    const Context rsa(24, nullptr, verifyOnly);
    unsigned long handle = 0;
    EXPECT_TRUE(refused(CryptCreateHash(rsa.get(), streebog, 0, 0, &handle), capi::NTE_BAD_ALGID));
    EXPECT_TRUE(refused(CryptCreateHash(rsa.get(), capi::CALG_RSA_SIGN, 0, 0, &handle), capi::NTE_BAD_ALGID));
    EXPECT_TRUE(
        refused(CryptCreateHash(rsa.get(), capi::CALG_OID_INFO_PARAMETERS, 0, 0, &handle), capi::NTE_BAD_ALGID));

    makeContainer(gost, L"c", "");
    const Context context(gost, L"c", 0);
    const Hash sha(context.get(), capi::CALG_SHA_256);
    DWORD size = 0;
    EXPECT_TRUE(refused(CryptSignHashW(sha.get(), 1, nullptr, 0, nullptr, &size), capi::NTE_BAD_ALGID));
    const Key key(userKey(context.get()));
    EXPECT_TRUE(refused(verify(sha.get(), Bytes(64), key.get()), capi::NTE_BAD_ALGID));
}

TEST_F(Hashes, SigningWithAnAbsentKeyLeavesTheHashOpen) {
    makeContainer(gost, L"c", "", capi::AT_SIGNATURE);
    const Context context(gost, L"c", 0);
    const Hash hash(context.get(), streebog);
    DWORD size = 0;
    for (const DWORD keySpec : {0U, 1U, 3U}) {
        EXPECT_TRUE(refused(CryptSignHashW(hash.get(), keySpec, nullptr, 0, nullptr, &size), capi::NTE_NO_KEY));
    }
    EXPECT_TRUE(CryptHashData(hash.get(), bytes("abc").data(), 3, 0));
    EXPECT_EQ(sign(hash.get(), capi::AT_SIGNATURE).size(), 64U);
}

} // namespace csp_keys
