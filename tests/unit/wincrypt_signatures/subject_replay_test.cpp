// Subjects of any characters are found again in the encoded name, or refused: the properties of the fuzz target over
// random texts.

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <string_view>

extern "C" int fuzzSubject(const std::uint8_t* data, std::size_t size);

namespace {

int replay(const std::string& text) {
    return fuzzSubject(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
}

/// What a subject's grammar gives a meaning, and characters of every length in UTF-8.
constexpr std::string_view pieces[] = {"\"", "\\",        ";", "=", "\"\"", " ",  "\t", "\n",   ",",    "+",     "<",
                                       "#",  "2.5.4.10=", "a", "Я", "№",    "你", "😀", "\x01", "\x7F", "\u00A0"};

class SubjectReplay : public testing::Test {
protected:
    std::size_t below(std::size_t limit) { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_); }
    std::string text(std::size_t most) {
        std::string result;
        for (std::size_t count = below(most); count > 0; --count) {
            result += pieces[below(std::size(pieces))];
        }
        return result;
    }

    std::mt19937 random_{20261122}; // NOLINT: the same texts in every run
};

TEST_F(SubjectReplay, ValuesOfAnyCharactersAreFoundAgain) {
    for (int round = 0; round < 400; ++round) {
        std::string values = text(24);
        for (std::size_t more = below(4); more > 0; --more) {
            values += '\0' + text(24);
        }
        ASSERT_EQ(replay(values), 0);
    }
}

TEST_F(SubjectReplay, EmptyAndVeryLongValuesAreFoundAgain) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{127}, std::size_t{128},
                                   std::size_t{65'536}, std::size_t{200'000}}) {
        ASSERT_EQ(replay(std::string(size, 'x')), 0);
        ASSERT_EQ(replay(std::string(size / 8, '"')), 0);
        ASSERT_EQ(replay(std::string(size / 8, '\\')), 0);
    }
}

TEST_F(SubjectReplay, TextsThatAreNotUtf8AreRefused) {
    for (const std::string octets : {"\xFF", "\xD0", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "a\x80"}) {
        ASSERT_EQ(replay(octets), 0);
        ASSERT_EQ(replay("CN" + octets + "=x"), 0);
    }
}

} // namespace
