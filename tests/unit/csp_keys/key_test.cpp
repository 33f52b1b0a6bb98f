// Key pairs and public keys.

#include "crypto/algorithms.hpp"
#include "service.hpp"
#include "support/openssl.hpp"

namespace csp_keys {

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;

class Keys : public ServiceTest {
protected:
    static unsigned long generate(unsigned long hProv, ALG_ID algorithm, DWORD flags = 0) {
        unsigned long key = 0;
        EXPECT_TRUE(CryptGenKey(hProv, algorithm, flags, &key)) << std::hex << GetLastError();
        return key;
    }
    /// A certificate that openssl makes for a new key of its own.
    [[nodiscard]] Bytes foreignCertificate() const {
        const test_support::Openssl openssl(home_);
        openssl.makeAuthority();
        openssl.must({"x509", "-in", "ca.pem", "-outform", "DER", "-out", "ca.der"});
        return bytes(home_.read("ca.der"));
    }
};

std::string oidOf(CERT_PUBLIC_KEY_INFO* info) {
    return info->Algorithm.pszObjId;
}

Bytes parametersOf(CERT_PUBLIC_KEY_INFO* info) {
    return {info->Algorithm.Parameters.pbData, info->Algorithm.Parameters.pbData + info->Algorithm.Parameters.cbData};
}

} // namespace

TEST_F(Keys, OfEachProviderTellWhatTheyAre) {
    struct Row {
        DWORD type;
        ALG_ID exchange;
        ALG_ID signature;
        DWORD bits;
    };
    for (const Row& row : {Row{80, capi::CALG_DH_GR3410_12_256_SF, capi::CALG_GR3410_12_256, 256},
                           Row{81, capi::CALG_DH_GR3410_12_512_SF, capi::CALG_GR3410_12_512, 512},
                           Row{75, capi::CALG_DH_EL_SF, capi::CALG_GR3410EL, 256},
                           Row{24, capi::CALG_RSA_KEYX, capi::CALG_RSA_SIGN, 2048}}) {
        SCOPED_TRACE(row.type);
        const Context context(row.type, L"c", capi::CRYPT_NEWKEYSET);
        const Key exchange(generate(context.get(), row.exchange, capi::CRYPT_EXPORTABLE));
        const Key signature(generate(context.get(), row.signature));
        EXPECT_EQ(keyNumber(exchange.get(), capi::KP_ALGID), row.exchange);
        EXPECT_EQ(keyNumber(signature.get(), capi::KP_ALGID), row.signature);
        EXPECT_EQ(keyNumber(signature.get(), capi::KP_KEYLEN), row.bits);
        EXPECT_EQ(keyNumber(exchange.get(), capi::KP_PERMISSIONS) & capi::CRYPT_EXPORT, capi::CRYPT_EXPORT);
        EXPECT_EQ(keyNumber(signature.get(), capi::KP_PERMISSIONS) & capi::CRYPT_EXPORT, 0U);
        DWORD size = 0;
        EXPECT_TRUE(refused(CryptGetKeyParam(exchange.get(), 99, nullptr, &size, 0), capi::NTE_BAD_TYPE));
    }
}

TEST_F(Keys, DefaultParameterSetsAndIdentifiers) {
    const Context context(gost, L"c", capi::CRYPT_NEWKEYSET);
    const Key exchange(generate(context.get(), capi::AT_KEYEXCHANGE));
    const Key signature(generate(context.get(), capi::AT_SIGNATURE));
    PublicKeyInfo one(context.get(), capi::AT_KEYEXCHANGE);
    PublicKeyInfo other(context.get(), capi::AT_SIGNATURE);
    EXPECT_EQ(oidOf(one.get()), "1.2.643.7.1.1.1.1");
    EXPECT_EQ(oidOf(other.get()), "1.2.643.7.1.1.1.1");
    EXPECT_EQ(parametersOf(one.get()), fromHex("301306072a85030202240006082a85030701010202"));
    EXPECT_EQ(parametersOf(other.get()), fromHex("301306072a85030202230106082a85030701010202"));
    EXPECT_EQ(one.get()->PublicKey.cbData, 66U);
    EXPECT_EQ(one.get()->PublicKey.cUnusedBits, 0U);

    const Context larger(81, L"c", capi::CRYPT_NEWKEYSET);
    const Key key(generate(larger.get(), capi::AT_KEYEXCHANGE));
    PublicKeyInfo of512(larger.get(), capi::AT_KEYEXCHANGE);
    EXPECT_EQ(parametersOf(of512.get()), fromHex("300b06092a8503070102010201"));
}

TEST_F(Keys, ParameterSetIsChosenForTheNextKeyOfItsSpec) {
    const Context context(gost, L"c", capi::CRYPT_NEWKEYSET);
    ASSERT_TRUE(choose(context.get(), capi::PP_EXCHANGE_ALGORITHM_OID, "1.2.643.7.1.2.1.1.1"));
    ASSERT_TRUE(choose(context.get(), capi::PP_SIGNATURE_ALGORITHM_OID, "1.2.643.2.2.35.3"));
    const Key exchange(generate(context.get(), capi::AT_KEYEXCHANGE));
    const Key signature(generate(context.get(), capi::AT_SIGNATURE));
    EXPECT_EQ(parametersOf(PublicKeyInfo(context.get(), 1).get()), fromHex("300b06092a8503070102010101"));
    EXPECT_EQ(parametersOf(PublicKeyInfo(context.get(), 2).get()),
              fromHex("301306072a85030202230306082a85030701010202"));
}

TEST_F(Keys, ParameterSetOfAnotherAlgorithmIsRefused) {
    const Context of256(80, L"c", capi::CRYPT_NEWKEYSET);
    const Context of512(81, L"c", capi::CRYPT_NEWKEYSET);
    const Context legacy(75, L"c", capi::CRYPT_NEWKEYSET);
    const Context rsa(24, L"c", capi::CRYPT_NEWKEYSET);
    for (const DWORD param : {capi::PP_SIGNATURE_ALGORITHM_OID, capi::PP_EXCHANGE_ALGORITHM_OID}) {
        EXPECT_TRUE(refused(choose(of256.get(), param, "1.2.643.7.1.2.1.2.1"), capi::NTE_BAD_ALGID));
        EXPECT_TRUE(refused(choose(of256.get(), param, "1.2.643.2.2.35.0"), capi::NTE_BAD_ALGID)) << "a test curve";
        EXPECT_TRUE(refused(choose(of256.get(), param, "nonsense"), capi::NTE_BAD_ALGID));
        EXPECT_TRUE(refused(choose(of256.get(), param, ""), capi::NTE_BAD_ALGID));
        EXPECT_TRUE(refused(choose(of512.get(), param, "1.2.643.2.2.36.0"), capi::NTE_BAD_ALGID));
        EXPECT_TRUE(refused(choose(legacy.get(), param, "1.2.643.7.1.2.1.1.1"), capi::NTE_BAD_ALGID));
        EXPECT_TRUE(refused(choose(rsa.get(), param, "1.2.643.2.2.36.0"), capi::NTE_BAD_ALGID));
        EXPECT_TRUE(choose(rsa.get(), param, "1.2.840.113549.1.1.1"));
        EXPECT_TRUE(choose(of256.get(), param, "1.2.643.7.1.1.1.1")) << "the algorithm itself: its default set";
        EXPECT_TRUE(refused(CryptSetProvParam(rsa.get(), param, reinterpret_cast<const BYTE*>("1.2.3"), 1),
                            capi::NTE_BAD_FLAGS));
    }
}

TEST_F(Keys, RsaSizeComesWithTheFlags) {
    const Context context(24, L"c", capi::CRYPT_NEWKEYSET);
    unsigned long handle = 0;
    EXPECT_TRUE(refused(CryptGenKey(context.get(), 1, 1024U << 16U, &handle), capi::NTE_BAD_LEN));
    EXPECT_TRUE(refused(CryptGenKey(context.get(), 1, 8192U << 16U, &handle), capi::NTE_BAD_LEN));
    const Key key(generate(context.get(), capi::AT_KEYEXCHANGE, 3072U << 16U));
    EXPECT_EQ(keyNumber(key.get(), capi::KP_KEYLEN), 3072U);
    EXPECT_EQ(keyNumber(key.get(), capi::KP_BLOCKLEN), 3072U);
    const Hash hash(context.get(), capi::CALG_SHA_256);
    EXPECT_EQ(sign(hash.get(), capi::AT_KEYEXCHANGE).size(), 384U);
    const Context gostContext(gost, L"c", capi::CRYPT_NEWKEYSET);
    EXPECT_TRUE(refused(CryptGenKey(gostContext.get(), 1, 512U << 16U, &handle), capi::NTE_BAD_LEN));
    const Key sized(generate(gostContext.get(), capi::AT_KEYEXCHANGE, 256U << 16U));
}

TEST_F(Keys, CertificateMustBeOneAndOfTheSameKey) {
    makeContainer(gost, L"c", "");
    const Context context(gost, L"c", 0);
    unsigned long handle = 0;
    ASSERT_TRUE(CryptGetUserKey(context.get(), capi::AT_KEYEXCHANGE, &handle));
    const Key key(handle);
    DWORD size = 0;
    EXPECT_TRUE(refused(CryptGetKeyParam(key.get(), capi::KP_CERTIFICATE, nullptr, &size, 0), capi::NTE_NOT_FOUND));
    const Bytes foreign = foreignCertificate();
    EXPECT_TRUE(
        refused(CryptSetKeyParam(key.get(), capi::KP_CERTIFICATE, foreign.data(), 0), capi::NTE_BAD_PUBLIC_KEY));
    for (const Bytes& bad : {fromHex("3003020100"), fromHex("3000"), fromHex("0500"), fromHex("3085ffffffffff")}) {
        EXPECT_TRUE(refused(CryptSetKeyParam(key.get(), capi::KP_CERTIFICATE, bad.data(), 0), capi::NTE_BAD_DATA));
    }
    EXPECT_TRUE(refused(CryptSetKeyParam(key.get(), capi::KP_ALGID, foreign.data(), 0), capi::NTE_BAD_TYPE));
    EXPECT_TRUE(refused(CryptGetKeyParam(key.get(), capi::KP_CERTIFICATE, nullptr, &size, 0), capi::NTE_NOT_FOUND));
}

TEST_F(Keys, ImportedOneVerifiesAndKeepsNoCertificate) {
    makeContainer(gost, L"c", "");
    const Context context(gost, L"c", 0);
    PublicKeyInfo info(context.get(), capi::AT_KEYEXCHANGE);
    unsigned long handle = 0;
    ASSERT_TRUE(CryptImportPublicKeyInfo(context.get(), capi::X509_ASN_ENCODING, info.get(), &handle));
    const Key key(handle);
    EXPECT_EQ(keyNumber(key.get(), capi::KP_ALGID), capi::CALG_GR3410_12_256);
    EXPECT_EQ(keyNumber(key.get(), capi::KP_KEYLEN), 256U);
    const Bytes any{0x30, 0x00};
    EXPECT_TRUE(refused(CryptSetKeyParam(key.get(), capi::KP_CERTIFICATE, any.data(), 0), capi::NTE_BAD_TYPE));

    info.get()->Algorithm.pszObjId = const_cast<char*>("1.2.643.7.1.1.6.1"); // the agreement's name of it
    ASSERT_TRUE(CryptImportPublicKeyInfo(context.get(), capi::X509_ASN_ENCODING, info.get(), &handle));
    CryptDestroyKey(handle);
    info.get()->PublicKey.pbData[20] ^= 1;
    EXPECT_TRUE(refused(CryptImportPublicKeyInfo(context.get(), capi::X509_ASN_ENCODING, info.get(), &handle),
                        capi::NTE_BAD_PUBLIC_KEY));
    info.get()->Algorithm.pszObjId = const_cast<char*>("1.2.3");
    EXPECT_TRUE(refused(CryptImportPublicKeyInfo(context.get(), capi::X509_ASN_ENCODING, info.get(), &handle),
                        capi::NTE_BAD_PUBLIC_KEY));
}

} // namespace csp_keys
