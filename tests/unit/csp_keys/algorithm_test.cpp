// Keys and signatures below the entry points.

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "crypto/digest.hpp"
#include "crypto/engine.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/public_key_info.hpp"
#include "crypto/signature.hpp"
#include "service.hpp"

#include <algorithm>

namespace csp_keys {

using namespace klunortredi::csp;

namespace {

constexpr std::string_view gost256 = "1.2.643.7.1.1.1.1";
constexpr std::string_view gost512 = "1.2.643.7.1.1.1.2";

DWORD refusalOf(ByteView info) {
    try {
        publicKeyFromInfo(info);
        return capi::ERROR_SUCCESS;
    } catch (const ApiError& e) {
        return e.code();
    }
}

/// A key of RFC 7091's examples: coordinates and numbers are printed most significant digit first there, the key is
/// written least significant octet first (RFC 9215).
Bytes exampleKey(std::string_view algorithm, std::string_view paramSet, std::string_view x, std::string_view y) {
    const KeyAlgorithm& row = *findKey(algorithm);
    Bytes point = fromHex(std::string(y) + std::string(x));
    std::ranges::reverse(point);
    return spki::join(row.oid, encodeGostParams(row, *findGostParamSet(row, paramSet)), der::octetString(point));
}

Bytes reversed(Bytes octets) {
    std::ranges::reverse(octets);
    return octets;
}

struct Pair {
    const KeyAlgorithm* algorithm;
    const GostParamSet* set;
};

std::vector<Pair> everyPair() {
    std::vector<Pair> pairs;
    for (const KeyAlgorithm& algorithm : keyAlgorithms()) {
        for (const GostParamSet& set : gostParamSets()) {
            if (set.generate && findGostParamSet(algorithm, set.oid) != nullptr) {
                pairs.push_back({&algorithm, &set});
            }
        }
    }
    return pairs;
}

} // namespace

TEST(GostSignature, VerifiesTheExampleOfRfc7091For256Bits) {
    const ossl::Pkey key = publicKeyFromInfo(
        exampleKey(gost256, "1.2.643.2.2.35.0", "7F2B49E270DB6D90D8595BEC458B50C58585BA1D4E9B788F6689DBD8E56FD80B",
                   "26F1B489D6701DD185C8413A977B3CBBAF64D1C593D26627DFFB101A87FF77DA"));
    const DigestAlgorithm& digest = defaultDigest(*findKey(gost256));
    const Bytes hash = reversed(fromHex("2DFBC1B372D89A1188C09C52E0EEC61FCE52032AB1022E8E67ECE6672B043EE5"));
    Bytes signature = fromHex("01456C64BA4642A1653C235A98A60249BCD6D3F746B631DF928014F6C5BF9C40"
                              "41AA28D2F1AB148280CD9ED56FEDA41974053554A42767B83AD043FD39DC0493");
    EXPECT_TRUE(verifyDigest(key.get(), digest, hash, signature));
    signature.back() ^= 1;
    EXPECT_FALSE(verifyDigest(key.get(), digest, hash, signature));
}

TEST(GostSignature, VerifiesTheExampleOfRfc7091For512Bits) {
    const ossl::Pkey key =
        publicKeyFromInfo(exampleKey(gost512, "1.2.643.7.1.2.1.2.0",
                                     "115DC5BC96760C7B48598D8AB9E740D4C4A85A65BE33C1815B5C320C854621DD"
                                     "5A515856D13314AF69BC5B924C8B4DDFF75C45415C1D9DD9DD33612CD530EFE1",
                                     "37C7C90CD40B0F5621DC3AC1B751CFA0E2634FA0503B3D52639F5D7FB72AFD61"
                                     "EA199441D943FFE7F0C70A2759A3CDB84C114E1F9339FDF27F35ECA93677BEEC"));
    const DigestAlgorithm& digest = defaultDigest(*findKey(gost512));
    const Bytes hash = reversed(fromHex("3754F3CFACC9E0615C4F4A7C4D8DAB531B09B6F9C170C533A71D147035B0C591"
                                        "7184EE536593F4414339976C647C5D5A407ADEDB1D560C4FC6777D2972075B8C"));
    Bytes signature = fromHex("1081B394696FFE8E6585E7A9362D26B6325F56778AADBC081C0BFBE933D52FF5"
                              "823CE288E8C4F362526080DF7F70CE406A6EEB1F56919CB92A9853BDE73E5B4A"
                              "2F86FA60A081091A23DD795E1E3C689EE512A3C82EE0DCC2643C78EEA8FCACD3"
                              "5492558486B20F1C9EC197C90699850260C93BCBCD9C5C3317E19344E173AE36");
    EXPECT_TRUE(verifyDigest(key.get(), digest, hash, signature));
    signature.front() ^= 1;
    EXPECT_FALSE(verifyDigest(key.get(), digest, hash, signature));
}

TEST(RsaPublicKey, IsTheKeyThatOpenSslReads) {
    const ossl::Pkey pair = generateRsaKey(2048);
    const Bytes info = publicKeyInfo(pair.get());
    const ossl::Pkey key = publicKeyFromInfo(info);
    EXPECT_EQ(EVP_PKEY_eq(key.get(), pair.get()), 1);
    EXPECT_EQ(publicKeyInfo(key.get()), info);
}

TEST(RsaPublicKey, IsExactlyTwoNumbersInDer) {
    const Bytes one = {der::tag::Integer, 1, 1};
    const auto info = [](const Bytes& key) { return spki::join("1.2.840.113549.1.1.1", der::null(), key); };
    const Bytes whole = spki::split(publicKeyInfo(generateRsaKey(2048).get())).key;
    ASSERT_EQ(refusalOf(info(whole)), capi::ERROR_SUCCESS);
    Bytes longer = whole;
    longer.push_back(0);
    EXPECT_EQ(refusalOf(info(longer)), capi::NTE_BAD_PUBLIC_KEY) << "an octet after the key";
    EXPECT_EQ(refusalOf(info({whole.begin(), whole.end() - 1})), capi::NTE_BAD_PUBLIC_KEY) << "an octet less";
    EXPECT_EQ(refusalOf(info(der::sequence({one}))), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(refusalOf(info(der::sequence({one, one, one}))), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(refusalOf(info(der::sequence({one, der::null()}))), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(refusalOf(info({})), capi::NTE_BAD_PUBLIC_KEY);
}

TEST(GostSignature, EveryParameterSetSignsAndVerifies) {
    EXPECT_EQ(everyPair().size(), 17U);
    for (const auto& [algorithm, set] : everyPair()) {
        SCOPED_TRACE(std::string(algorithm->oid) + " " + std::string(set->oid));
        const ossl::Pkey pair = generateGostKey(*algorithm, *set);
        const Bytes info = publicKeyInfo(pair.get());
        EXPECT_EQ(gostParamSetOf(*algorithm, spki::split(info).parameters), set);
        const ossl::Pkey key = publicKeyFromInfo(info);
        const DigestAlgorithm& digest = defaultDigest(*algorithm);
        const Bytes hash = Digest::of(digest, info);
        Bytes signature = signDigest(pair.get(), digest, hash);
        EXPECT_TRUE(verifyDigest(key.get(), digest, hash, signature));
        signature.push_back(0);
        EXPECT_FALSE(verifyDigest(key.get(), digest, hash, signature)) << "one octet behind the signature";
        signature.pop_back();
        signature.pop_back();
        EXPECT_FALSE(verifyDigest(key.get(), digest, hash, signature)) << "one octet too few";
        EXPECT_FALSE(verifyDigest(key.get(), digest, hash, {})) << "no signature";
    }
}

TEST(GostSignature, ZeroesAndAllOnesAreNoSignature) {
    const KeyAlgorithm& algorithm = *findKey(gost256);
    const ossl::Pkey pair = generateGostKey(algorithm, *findGostParamSet(algorithm, "1.2.643.2.2.36.0"));
    const Bytes hash(32, 7);
    for (const std::uint8_t octet : {std::uint8_t{0x00}, std::uint8_t{0xFF}}) {
        EXPECT_FALSE(verifyDigest(pair.get(), defaultDigest(algorithm), hash, Bytes(64, octet)));
    }
}

TEST(GostSignature, HashOfAnotherAlgorithmIsRefused) {
    const KeyAlgorithm& algorithm = *findKey(gost256);
    const ossl::Pkey pair = generateGostKey(algorithm, *findGostParamSet(algorithm, "1.2.643.2.2.36.0"));
    const DigestAlgorithm& sha = *findDigest(capi::CALG_SHA_256);
    EXPECT_THROW(signDigest(pair.get(), sha, Bytes(32)), ApiError);
    const Bytes valid = signDigest(pair.get(), defaultDigest(algorithm), Bytes(32));
    EXPECT_FALSE(verifyDigest(pair.get(), sha, Bytes(32), valid));
}

TEST(GostPublicKey, ParametersHaveTheFormOfRfc9215) {
    for (const auto& [algorithm, set] : everyPair()) {
        const ossl::Pkey pair = generateGostKey(*algorithm, *set);
        const Bytes parameters = spki::split(publicKeyInfo(pair.get())).parameters;
        const Bytes digestOid = algorithm->oid == "1.2.643.2.2.19"
                                    ? fromHex("06072a850302021e01")    // CryptoPro hash parameters
                                    : fromHex("06082a85030701010202"); // GOST R 34.11-2012, 256
        const bool has = std::ranges::search(parameters, digestOid).begin() != parameters.end();
        const bool cryptoPro = set->oid.starts_with("1.2.643.2.2.");
        EXPECT_EQ(has, cryptoPro) << set->oid;
    }
}

TEST(GostPublicKey, AgreementIdentifierMeansTheSameKey) {
    for (const auto& [algorithm, set] : everyPair()) {
        const ossl::Pkey pair = generateGostKey(*algorithm, *set);
        const Bytes info = publicKeyInfo(pair.get());
        const spki::Parts parts = spki::split(info);
        const Bytes agreement = spki::join(algorithm->agreeOid, parts.parameters, parts.key);
        EXPECT_NE(agreement, info);
        EXPECT_TRUE(samePublicKey(agreement, info)) << algorithm->oid;
        const Bytes hash(algorithm->defaultBits / 8, 1);
        const Bytes signature = signDigest(pair.get(), defaultDigest(*algorithm), hash);
        EXPECT_TRUE(verifyDigest(publicKeyFromInfo(agreement).get(), defaultDigest(*algorithm), hash, signature));
    }
}

TEST(GostPublicKey, DigestIdentifierBesideA512BitCurveMakesNoOtherKey) {
    const KeyAlgorithm& algorithm = *findKey(gost512);
    const ossl::Pkey pair = generateGostKey(algorithm, *findGostParamSet(algorithm, "1.2.643.7.1.2.1.2.1"));
    const Bytes info = publicKeyInfo(pair.get());
    const Bytes withDigest =
        spki::join(algorithm.oid, fromHex("301506092a850307010201020106082a85030701010203"), spki::split(info).key);
    EXPECT_NE(withDigest, info);
    EXPECT_TRUE(samePublicKey(withDigest, info));
}

// Whoever changes one bit anywhere in a key must not end with a key that still verifies.
TEST(GostPublicKey, EveryBitFlipIsRefused) {
    for (const auto& [algorithm, set] : everyPair()) {
        const ossl::Pkey pair = generateGostKey(*algorithm, *set);
        const Bytes info = publicKeyInfo(pair.get());
        for (std::size_t octet = 0; octet < info.size(); ++octet) {
            Bytes changed = info;
            changed[octet] ^= 1;
            const DWORD code = refusalOf(changed);
            // A flipped coordinate falls on the curve with a probability of nil; another curve's OID may hold the
            // point.
            EXPECT_TRUE(code == capi::NTE_BAD_PUBLIC_KEY || !samePublicKey(changed, info))
                << set->oid << " octet " << octet << " code " << std::hex << code;
        }
    }
}

TEST(GostPublicKey, PointOffTheCurveOrOfAnotherSizeIsRefused) {
    const KeyAlgorithm& algorithm = *findKey(gost256);
    const ossl::Pkey pair = generateGostKey(algorithm, *findGostParamSet(algorithm, "1.2.643.2.2.36.0"));
    const spki::Parts parts = spki::split(publicKeyInfo(pair.get()));
    const auto withPoint = [&](const Bytes& point) { return spki::join(parts.oid, parts.parameters, point); };

    EXPECT_EQ(refusalOf(withPoint(der::octetString(Bytes(64, 0)))), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(refusalOf(withPoint(der::octetString(Bytes(64, 0xFF)))), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(refusalOf(withPoint({})), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(refusalOf(withPoint({0x04, 0x00})), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(refusalOf(withPoint({0x04, 0x02, 0x01, 0x02})), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(refusalOf(withPoint(der::octetString(Bytes(66, 1)))), capi::NTE_BAD_PUBLIC_KEY);
}

TEST(GostPublicKey, CurveOfTheOtherSizeIsRefused) {
    const Bytes of512 = fromHex("300b06092a8503070102010201");
    const KeyAlgorithm& algorithm = *findKey(gost256);
    const ossl::Pkey pair = generateGostKey(algorithm, *findGostParamSet(algorithm, "1.2.643.2.2.36.0"));
    const spki::Parts parts = spki::split(publicKeyInfo(pair.get()));
    EXPECT_EQ(refusalOf(spki::join(gost256, of512, parts.key)), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(refusalOf(spki::join(gost512, parts.parameters, parts.key)), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(refusalOf(spki::join(gost256, {}, parts.key)), capi::NTE_BAD_PUBLIC_KEY);
}

TEST(PublicKey, TruncationAtEveryOctetIsRefused) {
    const ossl::Pkey rsa = generateRsaKey(2048);
    const Bytes info = publicKeyInfo(rsa.get());
    for (std::size_t size = 0; size < info.size(); ++size) {
        EXPECT_EQ(refusalOf(ByteView(info).first(size)), capi::NTE_BAD_PUBLIC_KEY) << size;
    }
    Bytes longer = info;
    longer.push_back(0);
    EXPECT_EQ(refusalOf(longer), capi::NTE_BAD_PUBLIC_KEY);
}

TEST(RsaSignature, VerifiesWithEachOfItsHashes) {
    const ossl::Pkey rsa = generateRsaKey(2048);
    for (const DigestAlgorithm& digest : digestAlgorithms()) {
        const Bytes hash(digest.size, 5);
        if (digest.gost) {
            EXPECT_THROW(signDigest(rsa.get(), digest, hash), ApiError);
            continue;
        }
        Bytes signature = signDigest(rsa.get(), digest, hash);
        EXPECT_TRUE(verifyDigest(rsa.get(), digest, hash, signature)) << digest.name;
        signature.insert(signature.begin(), 0);
        EXPECT_FALSE(verifyDigest(rsa.get(), digest, hash, signature)) << digest.name;
    }
}

TEST(RsaKey, OnlySizesFrom2048To4096AreMade) {
    for (const DWORD bits : {0U, 1024U, 2047U, 4097U, 8192U, 65535U}) {
        EXPECT_THROW(generateRsaKey(bits), ApiError) << bits;
    }
}

TEST(Library, LeavesTheHostsErrorQueueAlone) {
    const ossl::Pkey rsa = generateRsaKey(2048);
    ERR_clear_error();
    ERR_raise(ERR_LIB_USER, 42);
    EXPECT_FALSE(verifyDigest(rsa.get(), *findDigest(capi::CALG_SHA_256), Bytes(32), Bytes(256, 1)));
    EXPECT_EQ(refusalOf(Bytes{0x30, 0x00}), capi::NTE_BAD_PUBLIC_KEY);
    EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), 42);
    EXPECT_EQ(ERR_get_error(), 0U);
}

TEST(Engine, IsLoadedOnceAndChangesNoDefault) {
    EXPECT_EQ(gostEngine(), gostEngine());
    const ossl::MdCtx context(EVP_MD_CTX_new());
    ASSERT_EQ(EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr), 1);
    EXPECT_EQ(EVP_MD_get_type(EVP_MD_CTX_get0_md(context.get())), NID_sha256);
}

} // namespace csp_keys
