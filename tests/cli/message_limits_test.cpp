// A message beyond a limit is refused with the limit's name and number, and not called invalid.

#include "cli/message_parts.hpp"
#include "cli/signers_place.hpp"

#include <gmock/gmock.h>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class MessageLimits : public testing::Test {
protected:
    MessageLimits() {
        place_.makeIdentity("a", "ec", {"-pkeyopt", "ec_paramgen_curve:P-256"});
        place_.sign("a.p7s", {"a"});
    }

    [[nodiscard]] Parts parts() const { return Parts(place_.folder().read("a.p7s")); }

    /// The signer with these unsigned attributes.
    static std::string with(const std::string& signer, const std::string& attributes) {
        return element(0x30, Parts::content(signer) + element(0xA1, attributes));
    }
    static std::string attribute(const std::string& values) {
        return element(0x30, std::string("\x06\x03\x2A\x03\x04", 5) + element(0x31, values));
    }
    static std::string repeated(const std::string& text, int times) {
        std::string all;
        for (int i = 0; i < times; ++i) {
            all += text;
        }
        return all;
    }

    void expectRefusal(const std::string& message, const std::string& limit) {
        place_.folder().write("m.p7s", message);
        const Outcome outcome = place_.cli({"verify", "m.p7s"});
        EXPECT_EQ(outcome.exit, 4) << outcome.out << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr("it has " + limit));
        EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr("INVALID")));
        const Json document = place_.json({"verify", "m.p7s"});
        EXPECT_EQ(document["valid"], nullptr) << document;
        EXPECT_EQ(document["verdict"], "unknown");
        EXPECT_THAT(document["reason"].get<std::string>(), HasSubstr(limit));
    }
    int exitOf(const std::string& message) {
        place_.folder().write("m.p7s", message);
        return place_.cli({"verify", "m.p7s"}).exit;
    }

    SignersPlace place_;
    const std::string null_{"\x05\x00", 2};
};

TEST_F(MessageLimits, OfUnsignedAttributeValuesAreNamed) {
    const Parts m = parts();
    EXPECT_EQ(exitOf(m.message(m.certificates, with(m.signer, attribute(repeated(null_, 256))))), 0);
    expectRefusal(m.message(m.certificates, with(m.signer, attribute(repeated(null_, 300)))),
                  "more than 256 attribute values in one set of attributes");
}

TEST_F(MessageLimits, OfAttributesAreNamed) {
    const Parts m = parts();
    expectRefusal(m.message(m.certificates, with(m.signer, repeated(attribute(""), 257))),
                  "more than 256 attributes in one set");
}

TEST_F(MessageLimits, OfSignersAreNamed) {
    const Parts m = parts();
    expectRefusal(m.message(m.certificates, repeated(m.signer, 257)), "more than 256 signers");
}

TEST_F(MessageLimits, OfCertificatesAreNamed) {
    const Parts m = parts();
    expectRefusal(m.message(repeated(m.certificates, 4097), m.signer), "more than 4096 certificates");
}

TEST_F(MessageLimits, OfNestingAreNamed) {
    const Parts m = parts();
    const std::string open("\x24\x80", 2);
    std::string content = repeated(open, 70) + element(0x04, "x") + std::string(2 * 70, '\0');
    const std::string data("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x01", 11);
    const std::string version("\x02\x01\x01", 3);
    Parts deep = m;
    deep.head = version + element(0x31, "") + element(0x30, data + element(0xA0, content));
    expectRefusal(deep.message(m.certificates, m.signer), "more than 64 levels of nesting");
}

} // namespace
} // namespace cli_test
