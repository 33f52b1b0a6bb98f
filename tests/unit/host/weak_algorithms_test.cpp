#include "orvik/plugin/crypto/weak_algorithms.hpp"

#include <gmock/gmock.h>

#include <boost/date_time/posix_time/posix_time.hpp>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using boost::posix_time::ptime;
using boost::posix_time::time_from_string;
using orvik::plugin::crypto::allWeaknesses;
using orvik::plugin::crypto::UsedAlgorithms;
using orvik::plugin::crypto::Weakness;
using orvik::plugin::crypto::weaknesses;
using orvik::plugin::crypto::WeaknessLevel;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* rsa = "1.2.840.113549.1.1.1";
constexpr const char* sha256 = "2.16.840.1.101.3.4.2.1";
constexpr const char* gost2001 = "1.2.643.2.2.19";
constexpr const char* gost94 = "1.2.643.2.2.9";

const char* wordOf(WeaknessLevel level) {
    return level == WeaknessLevel::never ? "never" : "weak";
}

/// "name: level" of each finding.
std::vector<std::string> found(const UsedAlgorithms& used, const ptime& time = {}) {
    std::vector<std::string> texts;
    for (const Weakness& weakness : weaknesses(used, time)) {
        texts.push_back(std::string(weakness.name) + ": " + wordOf(weakness.level));
    }
    return texts;
}

TEST(WeakAlgorithms, DigestsAreFoundUnderTheirOwnNameAndThatOfASignatureAlgorithm) {
    EXPECT_THAT(found({"1.2.840.113549.2.5", "", 0}), ElementsAre("MD5 digest: never"));
    EXPECT_THAT(found({"1.2.840.113549.1.1.4", rsa, 2048}), ElementsAre("MD5 digest: never"));
    EXPECT_THAT(found({"1.2.840.113549.2.2", "", 0}), ElementsAre("MD2 digest: never"));
    EXPECT_THAT(found({"1.2.840.113549.2.4", "", 0}), ElementsAre("MD4 digest: never"));
    EXPECT_THAT(found({"1.3.14.3.2.26", "", 0}), ElementsAre("SHA-1 digest: weak"));
    EXPECT_THAT(found({"1.2.840.10045.4.1", "", 0}), ElementsAre("SHA-1 digest: weak"));
}

TEST(WeakAlgorithms, CurrentAlgorithmsAreNotFound) {
    EXPECT_THAT(found({sha256, rsa, 2048}), IsEmpty());
    EXPECT_THAT(found({"1.2.643.7.1.1.2.2", "1.2.643.7.1.1.1.1", 256}), IsEmpty());
    EXPECT_THAT(found({sha256, "1.2.840.10045.2.1", 256}), IsEmpty());
    EXPECT_THAT(found({"", "", 0}), IsEmpty());
}

TEST(WeakAlgorithms, SizesOfRsaKeysHaveTwoEdges) {
    EXPECT_THAT(found({sha256, rsa, 512}), ElementsAre("RSA key under 1024 bits: never"));
    EXPECT_THAT(found({sha256, rsa, 1023}), ElementsAre("RSA key under 1024 bits: never"));
    EXPECT_THAT(found({sha256, rsa, 1024}), ElementsAre("RSA key under 2048 bits: weak"));
    EXPECT_THAT(found({sha256, rsa, 2047}), ElementsAre("RSA key under 2048 bits: weak"));
    EXPECT_THAT(found({sha256, "1.2.840.113549.1.1.10", 1024}), ElementsAre("RSA key under 2048 bits: weak"));
}

TEST(WeakAlgorithms, SizesOfCurvesHaveTwoEdges) {
    constexpr const char* ec = "1.2.840.10045.2.1";
    EXPECT_THAT(found({sha256, ec, 112}), ElementsAre("EC key under 160 bits: never"));
    EXPECT_THAT(found({sha256, ec, 159}), ElementsAre("EC key under 160 bits: never"));
    EXPECT_THAT(found({sha256, ec, 160}), ElementsAre("EC key under 224 bits: weak"));
    EXPECT_THAT(found({sha256, ec, 223}), ElementsAre("EC key under 224 bits: weak"));
    EXPECT_THAT(found({sha256, ec, 224}), IsEmpty());
}

TEST(WeakAlgorithms, AnUnknownSizeIsNotJudged) {
    EXPECT_THAT(found({sha256, rsa, 0}), IsEmpty());
}

TEST(WeakAlgorithms, OldGostIsWeakAfterItsLastDay) {
    const UsedAlgorithms old{gost94, gost2001, 256};
    EXPECT_THAT(found(old, time_from_string("2019-12-31 23:59:59")), IsEmpty());
    EXPECT_THAT(found(old, time_from_string("2020-01-01 00:00:00")),
                ElementsAre("GOST R 34.11-94 digest: weak", "GOST R 34.10-2001 key: weak"));
    EXPECT_THAT(found(old), ElementsAre("GOST R 34.11-94 digest: weak", "GOST R 34.10-2001 key: weak"));
}

TEST(WeakAlgorithms, AnEarlyTimeDoesNotExcuseABrokenDigest) {
    EXPECT_THAT(found({"1.2.840.113549.2.5", "", 0}, time_from_string("1999-01-01 00:00:00")),
                ElementsAre("MD5 digest: never"));
}

TEST(WeakAlgorithms, ADigestAndAKeyAreBothNamed) {
    EXPECT_THAT(found({"1.3.14.3.2.26", rsa, 768}),
                ElementsAre("SHA-1 digest: weak", "RSA key under 1024 bits: never"));
}

TEST(WeakAlgorithms, TheDocumentHasTheSameRows) {
    std::vector<std::string> expected;
    for (const Weakness& row : allWeaknesses()) {
        expected.push_back(std::string("| ") + row.name + " | " + wordOf(row.level) + " | " + row.date + " | " +
                           row.reason + " |");
    }
    std::ifstream document(WEAK_ALGORITHMS_DOCUMENT);
    std::vector<std::string> rows;
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with("| ") && !line.starts_with("| algorithm ")) {
            rows.push_back(line);
        }
    }
    EXPECT_EQ(rows, expected);
}

} // namespace
