// The fuzz target of what time-stamps are accepted, over the answers of the test authority and over damaged ones.

#include "orvik/plugin/exception/exception.hpp"
#include "support/servers/authority.hpp"
#include "timestamp_glue.hpp"

#include <gtest/gtest.h>

#include <cstdint>

extern "C" int fuzzTimestampAcceptance(const std::uint8_t* data, std::size_t size);

namespace {

int replay(const std::string& octets) {
    return fuzzTimestampAcceptance(reinterpret_cast<const std::uint8_t*>(octets.data()), octets.size());
}

TEST(TimestampReplay, HoldsForAnswersAndDamagedAnswers) {
    const orvik::plugin::timestamp_glue::WincryptTimestampTools tools;
    const std::string nonce = "\x01\x23\x45\x67\x76\x54\x32\x10";
    const auto request = tools.makeRequestFor("octets that are stamped", "2.16.840.1.101.3.4.2.1", nonce);
    test_servers::Authority authority;
    for (const char* word : {"other-nonce", "no-nonce", "other-imprint", "other-imprint-algorithm", "rejected",
                             "rejected-with-token", "no-token", "no-certificate", "expired", "missing-usage",
                             "other-key", "other-certificate-id", "past", "future"}) {
        const std::string answer = test_servers::timestampAnswer(authority, request, {word});
        EXPECT_THROW(
            static_cast<void>(tools.tokenFor("octets that are stamped", "2.16.840.1.101.3.4.2.1", answer, nonce)),
            orvik::plugin::exception::Exception)
            << word;
        ASSERT_EQ(replay(answer), 0);
    }
    const std::string answer = test_servers::timestampAnswer(authority, request, {});
    EXPECT_NO_THROW(
        static_cast<void>(tools.tokenFor("octets that are stamped", "2.16.840.1.101.3.4.2.1", answer, nonce)));
    ASSERT_EQ(replay(answer), 0);
    constexpr std::size_t step = 23;
    for (std::size_t i = 0; i < answer.size(); i += step) {
        std::string damaged = answer;
        damaged[i] = static_cast<char>(damaged[i] ^ (1 << (i % 8)));
        ASSERT_EQ(replay(damaged), 0);
        ASSERT_EQ(replay(answer.substr(0, i)), 0);
    }
}

} // namespace
