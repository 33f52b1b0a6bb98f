// Tokens of an authority that behaves and misbehaves, judged through the plug-in over the embedded service.

#include "support/servers/authority.hpp"
#include "timestamp_glue.hpp"

#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <boost/smart_ptr/make_shared.hpp>
#include <gmock/gmock.h>

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using orvik::plugin::crypto::cadest::TimestampVerdict;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::timestamp_glue::WincryptTimestampTools;
using test_servers::Authority;
using test_servers::KeyKind;
using testing::HasSubstr;
using Result = TimestampVerdict::Result;

const std::string nonce = "\x11\x22\x33\x44\x55\x66\x77\x71"; // NOLINT(cert-err58-cpp)
const std::string octets = "the signature value";             // NOLINT(cert-err58-cpp)

struct Kind {
    const char* label;
    KeyKind key;
    const char* digest;
};

class TimestampToken : public testing::TestWithParam<Kind> {
protected:
    std::string respond(const test_servers::Words& words = {}) {
        return timestampAnswer(authority_, tools_.makeRequestFor(octets, GetParam().digest, nonce), words);
    }
    std::string token(const test_servers::Words& words = {}) {
        return tools_.tokenFor(octets, GetParam().digest, respond(words), nonce);
    }

    WincryptTimestampTools tools_;
    Authority authority_{GetParam().key};
};

TEST_P(TimestampToken, OfAnHonestAuthorityIsValid) {
    const TimestampVerdict verdict = tools_.judge(token(), octets);
    EXPECT_EQ(verdict.result, Result::valid) << verdict.reason;
    EXPECT_EQ(verdict.imprintAlgorithm, GetParam().digest);
    EXPECT_FALSE(verdict.time.is_special());
    ASSERT_TRUE(verdict.authority);
    EXPECT_EQ(verdict.authority->raw(), test_servers::toDer(authority_.timestamping({}).certificate));
    EXPECT_FALSE(verdict.certificates.empty());
}

TEST_P(TimestampToken, ForOtherOctetsIsInvalid) {
    const TimestampVerdict verdict = tools_.judge(token(), octets + " ");
    EXPECT_EQ(verdict.result, Result::invalid);
    EXPECT_THAT(verdict.reason, HasSubstr("imprint"));
    EXPECT_FALSE(verdict.time.is_special()) << "what it states is shown";
}

struct Misbehaviour {
    const char* word;
    int code;
    const char* reason;
};

TEST_P(TimestampToken, IsRefusedForEachMisbehaviourOfTheAuthority) {
    const Misbehaviour rows[] = {
        {"other-nonce", 20017, "nonce"},
        {"no-nonce", 20017, "nonce"},
        {"other-imprint", 20017, "imprint does not match"},
        {"other-imprint-algorithm", 20017, "algorithm of its imprint"},
        {"rejected", 20016, "status 2"},
        {"rejected-with-token", 20016, "status 2"},
        {"no-token", 20018, "no token"},
        {"no-certificate", 20017, "no certificate"},
        {"expired", 20017, "validity"},
        {"missing-usage", 20017, "timeStamping alone"},
        {"usage-not-critical", 20017, "timeStamping alone"},
        {"more-usages", 20017, "timeStamping alone"},
        {"other-key", 20017, "signature is not valid"},
        {"other-certificate-id", 20017, "not valid"},
        {"no-certificate-id", 20017, "does not name its certificate"},
        {"past", 20017, "validity"},
        {"future", 20017, "validity"},
        {"hour-ahead", 20017, "in the future"},
    };
    for (const Misbehaviour& row : rows) {
        try {
            token({row.word});
            ADD_FAILURE() << row.word << ": the response was accepted";
        } catch (const ApplicationException& e) {
            EXPECT_EQ(e.code().value(), row.code) << row.word;
            EXPECT_THAT(e.what(), HasSubstr(row.reason)) << row.word;
        }
    }
}

/// The token of a granted response.
std::string tokenIn(const std::string& response) {
    const std::string status("\x30\x03\x02\x01\x00", 5); // PKIStatusInfo: granted
    return response.substr(response.find(status) + status.size());
}

TEST_P(TimestampToken, WithoutItsCertificateIsJudgedByOneAtHand) {
    const std::string bare = tokenIn(respond({"no-certificate"}));
    const TimestampVerdict alone = tools_.judge(bare, octets);
    EXPECT_EQ(alone.result, Result::unknown);
    EXPECT_THAT(alone.reason, HasSubstr("certificate is not in it"));
    EXPECT_FALSE(alone.authority);

    using Certificates = std::vector<boost::shared_ptr<orvik::plugin::crypto::ICertificate>>;
    const auto right = tools_.judge(token(), octets).authority;
    const auto expired = tools_.judge(tokenIn(respond({"expired"})), octets).authority;
    ASSERT_TRUE(right && expired);
    const auto judged = [&](const std::string& judgedToken, Certificates certificates) {
        return tools_.judge(judgedToken, octets, [=] { return certificates; });
    };
    const TimestampVerdict found = judged(bare, {expired, right});
    EXPECT_EQ(found.result, Result::valid) << found.reason;
    ASSERT_TRUE(found.authority);
    EXPECT_EQ(found.authority->raw(), right->raw());
    for (const Certificates& certificates : {Certificates{}, Certificates{expired}}) {
        const TimestampVerdict missing = judged(bare, certificates);
        EXPECT_EQ(missing.result, Result::unknown);
        EXPECT_THAT(missing.reason, HasSubstr("neither in it nor at hand"));
    }
    const TimestampVerdict failed = tools_.judge(bare, octets, []() -> Certificates {
        throw orvik::plugin::crypto::exception::SystemException(0x80093102U); // of the source, not of the token
    });
    EXPECT_EQ(failed.result, Result::unknown) << failed.reason;
    // Of a certificate at hand nothing follows that is worse than of none.
    EXPECT_EQ(judged(tokenIn(respond({"no-certificate", "other-key"})), {right}).result, Result::unknown);
    EXPECT_EQ(judged(tokenIn(respond({"no-certificate", "other-certificate-id"})), {right}).result, Result::unknown);
    EXPECT_EQ(judged(tokenIn(respond({"no-certificate", "no-certificate-id"})), {right}).result, Result::unknown);
    EXPECT_EQ(judged(tokenIn(respond({"no-certificate", "other-imprint"})), {right}).result, Result::invalid);
    EXPECT_EQ(judged(tokenIn(respond({"no-certificate", "expired"})), {expired}).result, Result::invalid);
}

TEST_P(TimestampToken, IsComparedWithFewCertificatesOfItsAuthoritysName) {
    const std::string bare = tokenIn(respond({"no-certificate"}));
    const auto right = tools_.judge(token(), octets).authority;
    ASSERT_TRUE(right);
    std::string der = right->raw();
    der.back() = static_cast<char>(der.back() ^ 1);
    const auto namesake = boost::make_shared<orvik::plugin::wincrypt::Certificate>(der);
    std::vector<boost::shared_ptr<orvik::plugin::crypto::ICertificate>> certificates(15, namesake);
    certificates.push_back(right);
    const auto judged = [&] { return tools_.judge(bare, octets, [&] { return certificates; }); };
    EXPECT_EQ(judged().result, Result::valid);
    certificates.insert(certificates.begin(), namesake);
    EXPECT_EQ(judged().result, Result::unknown);
    EXPECT_THAT(judged().reason, HasSubstr("more than 16 certificates"));
}

TEST_P(TimestampToken, TruncatedAnywhereIsNotValidAndNothingCrashes) {
    const std::string whole = token();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_NE(tools_.judge(whole.substr(0, size), octets).result, Result::valid) << size;
    }
}

/// An octet may be free to change only where nothing depends on it: the verdict then states the same.
TEST_P(TimestampToken, WithAChangedOctetIsNotValidOrStatesTheSame) {
    const std::string whole = token();
    const TimestampVerdict good = tools_.judge(whole, octets);
    std::size_t free = 0;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        const TimestampVerdict verdict = tools_.judge(changed, octets);
        if (verdict.result != Result::valid) {
            continue;
        }
        ++free;
        EXPECT_EQ(verdict.time, good.time) << at;
        EXPECT_EQ(verdict.serialNumber, good.serialNumber) << at;
        EXPECT_EQ(verdict.policy, good.policy) << at;
        EXPECT_EQ(verdict.authority->raw(), good.authority->raw()) << at;
    }
    EXPECT_LE(free, 2U) << "the versions of the token and of its signer";
}

TEST_P(TimestampToken, ResponseTruncatedAnywhereIsRefused) {
    const std::string whole = respond();
    constexpr std::size_t step = 5;
    for (std::size_t size = 0; size < whole.size(); size += step) {
        EXPECT_THROW(static_cast<void>(tools_.tokenFor(octets, GetParam().digest, whole.substr(0, size), nonce)),
                     ApplicationException)
            << size;
    }
}

TEST_P(TimestampToken, KeepsTheFuzzTargetsPropertyWhenItIsDamaged) {
    const std::string request = tools_.makeRequestFor(octets, GetParam().digest, nonce);
    for (const std::string& whole : {request, respond(), respond({"rejected"}), token()}) {
        constexpr std::size_t step = 2;
        for (std::size_t at = 0; at < whole.size(); at += step) {
            std::string damaged = whole;
            damaged[at] = static_cast<char>(damaged[at] ^ (1 << (at % 8)));
            const auto replay = [&] {
                return LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(damaged.data()), damaged.size());
            };
            ASSERT_EQ(replay(), 0);
            damaged.resize(at);
            ASSERT_EQ(replay(), 0);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kind, TimestampToken,
                         testing::Values(Kind{"Gost256", KeyKind::gost2012_256, "1.2.643.7.1.1.2.2"},
                                         Kind{"Ec", KeyKind::ec, "2.16.840.1.101.3.4.2.1"}),
                         [](const auto& row) { return row.param.label; });

TEST(TimestampJudge, TakesNothingButTimestamps) {
    const WincryptTimestampTools tools;
    for (const std::string& odd :
         {std::string(), std::string("x"), std::string("\x30\x00", 2), std::string(200'000, 'x')}) {
        const TimestampVerdict verdict = tools.judge(odd, octets);
        EXPECT_NE(verdict.result, Result::valid);
        EXPECT_FALSE(verdict.reason.empty());
    }
}

} // namespace
