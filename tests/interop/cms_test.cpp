#include "cli/workplace.hpp"
#include "interop/bouncy_castle.hpp"

#include <gmock/gmock.h>

#include <array>
#include <filesystem>
#include <optional>
#include <ostream>

namespace interop {
namespace {

using cli_test::Outcome;
using cli_test::Workplace;
using testing::ElementsAre;
using testing::HasSubstr;

/// A kind of key: what Bouncy Castle's side calls it, and the type of the provider that makes it on ours.
struct Kind {
    const char* name;
    const char* provider;
};

/// Instead of the octets of its pointers, in what ctest lists.
void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

class Cms : public testing::TestWithParam<Kind> {
protected:
    void SetUp() override {
        if (const std::string lack = BouncyCastle::lacks(); !lack.empty()) {
            GTEST_SKIP() << "Bouncy Castle cannot judge here: " << lack;
        }
        castle_.emplace(place_.folder(), "CmsTool");
    }

    /// Copies `file` to `changed` with one bit of the octet at `offset` turned.
    void change(const std::string& file, const std::string& changed, std::size_t offset) const {
        std::string octets = place_.folder().read(file);
        octets.at(offset) = static_cast<char>(octets.at(offset) ^ 1);
        place_.folder().write(changed, octets);
    }

    /// An octet amidst the signature value, the last field of a message without unsigned attributes and lists.
    [[nodiscard]] std::size_t insideValue(const std::string& file) const {
        constexpr std::size_t beforeEnd = 40; // shorter than any value, longer than the ends of indefinite lengths
        return place_.folder().read(file).size() - beforeEnd;
    }

    [[nodiscard]] std::size_t insideContent(const std::string& file) const {
        return place_.folder().read(file).find("report");
    }

    Workplace place_;
    std::optional<BouncyCastle> castle_;
};

class CmsOfBouncyCastle : public Cms {
protected:
    void SetUp() override {
        Cms::SetUp();
        if (!IsSkipped()) {
            std::filesystem::create_directory(place_.folder() / "castle");
            EXPECT_THAT(castle_->run({"sign", GetParam().name, "report.txt", "castle"}), ElementsAre());
        }
    }
};

TEST_P(CmsOfBouncyCastle, IsValid) {
    const std::string signer = std::string("CN=Castle ") + GetParam().name;
    for (const char* shape : {"attached", "attached-direct", "attached-stream"}) {
        const Outcome checking = place_.cli({"verify", std::string("castle/") + shape, "--extract", "out", "--force"});
        EXPECT_EQ(checking.exit, 0) << shape << ": " << checking.out << checking.err;
        EXPECT_THAT(checking.out, HasSubstr(signer)) << shape;
        EXPECT_EQ(place_.folder().read("out"), place_.folder().read("report.txt")) << shape;
    }
    for (const char* shape : {"detached", "detached-direct", "detached-stream"}) {
        const Outcome checking = place_.cli({"verify", std::string("castle/") + shape, "--content", "report.txt"});
        EXPECT_EQ(checking.exit, 0) << shape << ": " << checking.out << checking.err;
        EXPECT_THAT(checking.out, HasSubstr(signer)) << shape;
    }
}

TEST_P(CmsOfBouncyCastle, IsRefusedWithOneBitChanged) {
    change("report.txt", "other.txt", 4);
    for (const char* shape : {"detached", "detached-direct", "detached-stream"}) {
        const std::string file = std::string("castle/") + shape;
        EXPECT_EQ(place_.cli({"verify", file, "--content", "other.txt"}).exit, 1) << shape;
        change(file, "changed", insideValue(file));
        EXPECT_EQ(place_.cli({"verify", "changed", "--content", "report.txt"}).exit, 1) << shape;
    }
    for (const char* shape : {"attached", "attached-direct"}) {
        const std::string file = std::string("castle/") + shape;
        change(file, "changed", insideContent(file));
        EXPECT_EQ(place_.cli({"verify", "changed"}).exit, 1) << shape;
    }
}

class CmsForBouncyCastle : public Cms {
protected:
    void SetUp() override {
        Cms::SetUp();
        if (!IsSkipped()) {
            place_.makeSigner("one", GetParam().provider);
            sign("detached");
            sign("attached");
            sign("attached", {"--attribute", "1.2.3.4=UTF8String:слово", "--out", "attribute.p7s"});
        }
    }

    void sign(const std::string& format, const std::vector<std::string>& more = {}) {
        std::vector<std::string> words{"sign", "report.txt", "--cert", "Signer one", "--format", format};
        words.insert(words.end(), more.begin(), more.end());
        const Outcome signing = place_.cliWithPin(words);
        ASSERT_EQ(signing.exit, 0) << signing.err;
    }
};

TEST_P(CmsForBouncyCastle, IsValid) {
    EXPECT_THAT(castle_->run({"verify", "report.txt.sig", "report.txt", "report.txt.p7s", "-", "attribute.p7s", "-"}),
                ElementsAre("valid CN=Signer one", "valid CN=Signer one", "valid CN=Signer one"));
}

TEST_P(CmsForBouncyCastle, IsRefusedWithOneBitChanged) {
    change("report.txt", "other.txt", 4);
    change("report.txt.sig", "value.sig", insideValue("report.txt.sig"));
    change("report.txt.p7s", "content.p7s", insideContent("report.txt.p7s"));
    change("attribute.p7s", "attribute-changed.p7s", place_.folder().read("attribute.p7s").find("слово"));
    EXPECT_THAT(castle_->run({"verify", "report.txt.sig", "other.txt", "value.sig", "report.txt", "content.p7s", "-",
                              "attribute-changed.p7s", "-"}),
                ElementsAre("invalid", "invalid", "invalid", "invalid"));
}

constexpr std::array<Kind, 3> kinds = {Kind{"gost256", "80"}, Kind{"gost512", "81"}, Kind{"rsa", "24"}};
const auto nameOf = [](const testing::TestParamInfo<Kind>& info) { return info.param.name; };

INSTANTIATE_TEST_SUITE_P(Keys, CmsOfBouncyCastle, testing::ValuesIn(kinds), nameOf);
INSTANTIATE_TEST_SUITE_P(Keys, CmsForBouncyCastle, testing::ValuesIn(kinds), nameOf);

} // namespace
} // namespace interop
