// Content that is somebody's signed attributes.

#include "asn1/der.hpp"
#include "crafted.hpp"
#include "messages/attribute_shape.hpp"

#include <gtest/gtest.h>

namespace klunortredi::test {
namespace {

namespace der = csp::der;

bool matches(ByteView content, std::size_t piece = 1) {
    csp::AttributeShape shape;
    while (!content.empty()) {
        const std::size_t size = std::min(piece, content.size());
        shape.update(content.first(size));
        content = content.subspan(size);
    }
    return shape.matches();
}

Bytes set(const std::vector<Bytes>& attributes) {
    return der::setOf(attributes);
}

TEST(AttributeShape, MatchesASetOfAttributesOfAnySize) {
    for (const std::size_t size : {0U, 100U, 200U, 70000U}) {
        const Bytes content = set({attribute("1.2.3", {der::octetString(Bytes(size))}), attribute("1.2.4", {})});
        for (const std::size_t piece : {1U, 7U, 4096U}) {
            EXPECT_TRUE(matches(content, piece)) << size;
        }
    }
}

TEST(AttributeShape, MatchesWhenTheIdentifierIsLongerThanWhatIsKept) {
    std::string oid = "1.2";
    for (int i = 0; i < 300; ++i) {
        oid += ".5";
    }
    EXPECT_TRUE(matches(set({attribute(oid, {der::null()})})));
}

TEST(AttributeShape, DoesNotMatchOtherContent) {
    const Bytes one = attribute("1.2.3", {der::null()});
    Bytes longer = set({one});
    longer.push_back(0);
    Bytes shorter = set({one});
    shorter.pop_back();
    for (const Bytes& content : {
             Bytes{},
             bytes("1"),
             bytes("1 plain text that begins with the octet 0x31"),
             one,
             longer,
             shorter,
             set({}),
             set({der::null()}),
             set({der::sequence({der::null()})}),
             set({der::sequence({der::objectIdentifier("1.2.3")})}),
             set({der::sequence({der::objectIdentifier("1.2.3"), der::utf8String("of a name")})}),
         }) {
        EXPECT_FALSE(matches(content));
    }
}

/// A second message made of an honest one: its signed attributes become the content, its signature value stays.
class StrippedAttributes : public testing::TestWithParam<bool> {};

TEST_P(StrippedAttributes, AreNotTakenForContent) {
    const bool detached = GetParam();
    const Signer signer = makeSigner(KeyKind::Gost256);
    const Crafted original = honest(signer, bytes("content"));
    const Bytes stolen = set(original.attributes);
    Crafted message = original;
    message.hasAttributes = false;
    message.signedContent = stolen;
    message.content = stolen;
    if (detached) {
        message.content.reset();
    }
    const Msg msg = Msg::decode(detached ? capi::CMSG_DETACHED_FLAG : 0);
    ASSERT_EQ(msg.feed(encode(signer, message)), 0U);
    if (detached) {
        ASSERT_EQ(msg.feed(stolen, 3), 0U);
    }
    EXPECT_EQ(msg.verifySigner(0, signer.certificate), capi::CRYPT_E_AUTH_ATTR_MISSING);
    EXPECT_EQ(msg.verify(signer.certificate), capi::CRYPT_E_AUTH_ATTR_MISSING);
}

INSTANTIATE_TEST_SUITE_P(Forms, StrippedAttributes, testing::Bool(),
                         [](const auto& row) { return row.param ? "Detached" : "Attached"; });

TEST(AttributesAsContent, AreFineUnderSignedAttributes) {
    const Signer signer = makeSigner(KeyKind::Gost256);
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(encode(signer, honest(signer, set({attribute("1.2.3", {der::null()})})))), 0U);
    EXPECT_EQ(msg.verifySigner(0, signer.certificate), 0U);
}

} // namespace
} // namespace klunortredi::test
