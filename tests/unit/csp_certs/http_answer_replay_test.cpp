// The fuzz target of HTTP answers, over genuine answers of the test servers and damaged ones.

#include "fuzz_targets.hpp"

#include <gtest/gtest.h>

#include <string>

std::string genuineHttpAnswer(unsigned seed);

namespace {

int replay(const std::string& octets) {
    return fuzzHttpAnswer(reinterpret_cast<const std::uint8_t*>(octets.data()), octets.size());
}

TEST(HttpAnswerReplay, HoldsForGenuineAndDamagedAnswers) {
    constexpr unsigned answers = 8 * 9; // each kind with each misbehaviour
    constexpr std::size_t step = 251;
    for (unsigned seed = 0; seed < answers; ++seed) {
        const std::string answer = genuineHttpAnswer(seed);
        ASSERT_EQ(replay(answer), 0);
        for (std::size_t i = 1 + seed; i < answer.size(); i += step) {
            std::string damaged = answer;
            damaged[i] = static_cast<char>(damaged[i] ^ (1 << (i % 8)));
            ASSERT_EQ(replay(damaged), 0);
        }
        ASSERT_EQ(replay(answer.substr(0, answer.size() / 2)), 0);
    }
    ASSERT_EQ(replay(""), 0);
}

} // namespace
