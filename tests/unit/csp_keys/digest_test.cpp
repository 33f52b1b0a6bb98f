// Hash values that standards publish.

#include "crypto/digest.hpp"
#include "service.hpp"

#include <fstream>
#include <sstream>

namespace csp_keys {

namespace csp = klunortredi::csp;

namespace {

struct Vector {
    const char* name;
    ALG_ID algorithm;
    Bytes message;
    const char* value;
};

// "Се ветри, Стрибожи внуци, веютъ с моря стрелами на храбрыя плъкы Игоревы" in Windows-1251.
constexpr const char* windInCp1251 = "d1e520e2e5f2f0e82c20d1f2f0e8e1eee6e820e2edf3f6e82c20e2e5fef2fa20f120eceef0ff20f1"
                                     "f2f0e5ebe0ece820ede020f5f0e0e1f0fbff20efebfaeafb20c8e3eef0e5e2fb";
constexpr const char* digits = "012345678901234567890123456789012345678901234567890123456789012";

std::vector<Vector> vectors() {
    return {
        {"RFC 6986 M1, 256", capi::CALG_GR3411_2012_256, bytes(digits),
         "9d151eefd8590b89daa6ba6cb74af9275dd051026bb149a452fd84e5e57b5500"},
        {"RFC 6986 M1, 512", capi::CALG_GR3411_2012_512, bytes(digits),
         "1b54d01a4af5b9d5cc3d86d68d285462b19abc2475222f35c085122be4ba1ffa"
         "00ad30f8767b3a82384c6574f024c311e2a481332b08ef7f41797891c1646f48"},
        {"RFC 6986 M2, 256", capi::CALG_GR3411_2012_256, fromHex(windInCp1251),
         "9dd2fe4e90409e5da87f53976d7405b0c0cac628fc669a741d50063c557e8f50"},
        {"RFC 6986 M2, 512", capi::CALG_GR3411_2012_512, fromHex(windInCp1251),
         "1e88e62226bfca6f9994f1f2d51569e0daf8475a3b0fe61a5300eee46d961376"
         "035fe83549ada2b8620fcd7c496ce5b33f0cb9dddc2b6460143b03dabac9fb28"},
        // GOST R 34.11-94 with the parameters of RFC 4357, 11.2 (CryptoPro)
        {"34.11-94 empty", capi::CALG_GR3411, {}, "981e5f3ca30c841487830f84fb433e13ac1101569b9c13584ac483234cd656c0"},
        {"34.11-94 abc", capi::CALG_GR3411, bytes("abc"),
         "b285056dbf18d7392d7677369524dd14747459ed8143997e163b2986f92fd42c"},
        {"34.11-94 32 octets", capi::CALG_GR3411, bytes("This is message, length=32 bytes"),
         "2cefc2f7b7bdc514e18ea57fa74ff357e7fa17d652c75f69cb1be7893ede48eb"},
        {"34.11-94 50 octets", capi::CALG_GR3411, bytes("Suppose the original message has length = 50 bytes"),
         "c3730c5cbccacf915ac292676f21e8bd4ef75331d9405e5f1a61dc3130a65011"},
        {"FIPS 180 SHA-1", capi::CALG_SHA1, bytes("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"FIPS 180 SHA-256", capi::CALG_SHA_256, bytes("abc"),
         "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"FIPS 180 SHA-384", capi::CALG_SHA_384, bytes("abc"),
         "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
        {"FIPS 180 SHA-512", capi::CALG_SHA_512, bytes("abc"),
         "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
         "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
    };
}

struct CorpusCase {
    std::string id;
    std::string input;
    ALG_ID algorithm;
    std::string value;
};

std::vector<CorpusCase> corpus(const std::string& folder) {
    const std::vector<std::pair<std::string, ALG_ID>> names{{"md_gost12_256", capi::CALG_GR3411_2012_256},
                                                            {"md_gost12_512", capi::CALG_GR3411_2012_512},
                                                            {"md_gost94", capi::CALG_GR3411}};
    std::ifstream manifest(folder + "/MANIFEST.tsv");
    std::vector<CorpusCase> cases;
    std::string line;
    std::getline(manifest, line); // headings
    while (std::getline(manifest, line)) {
        std::istringstream fields(line);
        CorpusCase row;
        std::string operation;
        std::string arguments;
        std::getline(fields, row.id, '\t');
        std::getline(fields, operation, '\t');
        std::getline(fields, row.input, '\t');
        std::getline(fields, arguments, '\t');
        for (const auto& [name, algorithm] : names) {
            const std::string prefix = "alg=" + name + ";value=";
            if (arguments.starts_with(prefix)) {
                row.algorithm = algorithm;
                row.value = arguments.substr(prefix.size());
                cases.push_back(row);
            }
        }
    }
    return cases;
}

std::string corpusFolder() {
    const char* const set = std::getenv("KLUNORTREDI_CORPORA");
    return std::string(set != nullptr ? set : KLUNORTREDI_DEFAULT_CORPORA) + "/gost-hash-kat";
}

class Digests : public ServiceTest {};

} // namespace

TEST_F(Digests, MatchPublishedVectorsHoweverTheMessageIsCut) {
    const Context context(capi::PROV_GOST_2012_256, nullptr, verifyOnly);
    for (const Vector& vector : vectors()) {
        SCOPED_TRACE(vector.name);
        const Hash whole(context.get(), vector.algorithm, vector.message);
        EXPECT_EQ(whole.value(), fromHex(vector.value));
        const Hash cut(context.get(), vector.algorithm);
        for (const std::uint8_t octet : vector.message) {
            ASSERT_TRUE(CryptHashData(cut.get(), &octet, 1, 0));
        }
        EXPECT_EQ(cut.value(), fromHex(vector.value));
    }
}

TEST_F(Digests, AreTheSameAtOnceAndInPieces) {
    Bytes message;
    for (std::size_t size = 0; size <= 260; ++size) { // beyond two blocks of each
        for (const csp::DigestAlgorithm& algorithm : csp::digestAlgorithms()) {
            csp::Digest inPieces(algorithm);
            inPieces.update(message);
            EXPECT_EQ(csp::Digest::of(algorithm, message), inPieces.finish()) << algorithm.oid << ' ' << size;
        }
        message.push_back(static_cast<std::uint8_t>(size));
    }
}

TEST_F(Digests, MatchTheCorpusOfOthers) {
    if (!std::filesystem::exists(corpusFolder())) {
        GTEST_SKIP() << "no corpus at " << corpusFolder();
    }
    const Context context(capi::PROV_GOST_2012_256, nullptr, verifyOnly);
    const auto cases = corpus(corpusFolder());
    EXPECT_GE(cases.size(), 270U);
    for (const CorpusCase& row : cases) {
        const Hash hash(context.get(), row.algorithm, bytes(test_support::readFile(corpusFolder() + '/' + row.input)));
        EXPECT_EQ(hash.value(), fromHex(row.value)) << row.id;
    }
}

TEST_F(Digests, CertificateHashIsSha1UnlessSaid) {
    const Bytes message = bytes("abc");
    Bytes value(64);
    DWORD size = static_cast<DWORD>(value.size());
    ASSERT_TRUE(CryptHashCertificate(0, 0, 0, message.data(), 3, value.data(), &size));
    value.resize(size);
    EXPECT_EQ(value, fromHex("a9993e364706816aba3e25717850c26c9cd0d89d"));

    size = 0;
    ASSERT_TRUE(CryptHashCertificate(0, capi::CALG_GR3411_2012_512, 0, message.data(), 3, nullptr, &size));
    EXPECT_EQ(size, 64U);
    EXPECT_TRUE(refused(CryptHashCertificate(0, capi::CALG_RSA_SIGN, 0, message.data(), 3, nullptr, &size),
                        capi::NTE_BAD_ALGID));
    EXPECT_TRUE(refused(CryptHashCertificate(77, 0, 0, message.data(), 3, nullptr, &size), capi::ERROR_INVALID_HANDLE));
}

} // namespace csp_keys
