// The same message in the other forms that BER allows.

#include "asn1/der.hpp"
#include "openssl_tool.hpp"
#include "signing.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace klunortredi::test {
namespace {

namespace der = csp::der;

/// How an element is written.
struct Form {
    bool indefinite;     ///< constructed elements without lengths
    std::size_t segment; ///< octets of the pieces of octet strings; 0: in one piece
};

constexpr std::size_t signedDataDepth = 2;

Bytes withLength(std::uint8_t identifier, ByteView content, const Form& form) {
    if ((identifier & 0x20U) != 0 && form.indefinite) {
        return der::concat({Bytes{identifier, 0x80}, content, Bytes{0, 0}});
    }
    constexpr unsigned lengthOctets = 4; // more than needed
    Bytes out{identifier, 0x80U | lengthOctets};
    for (unsigned i = lengthOctets; i-- > 0;) {
        out.push_back(static_cast<std::uint8_t>(content.size() >> (8 * i)));
    }
    der::append(out, content);
    return out;
}

Bytes octetString(ByteView content, const Form& form) {
    if (form.segment == 0) {
        return withLength(der::tag::OctetString, content, form);
    }
    Bytes segments;
    for (std::size_t at = 0; at < content.size(); at += form.segment) {
        const ByteView piece = content.subspan(at, std::min(form.segment, content.size() - at));
        // Every other one nested once more.
        const Bytes segment = withLength(der::tag::OctetString, piece, form);
        der::append(segments, at / form.segment % 2 == 0 ? segment : withLength(0x24, segment, form));
    }
    return withLength(0x24, segments, form);
}

/// A message in that form; certificates stay as they were signed.
Bytes rewritten(const der::Element& element, const Form& form, std::size_t depth = 0) {
    if (element.tag == der::tag::OctetString) {
        return octetString(element.content, form);
    }
    if ((element.tag & 0x20U) == 0) {
        return withLength(element.tag, element.content, form);
    }
    const bool certificates = depth == signedDataDepth + 1 && element.tag == 0xA0;
    Bytes content;
    for (der::Reader members(element.content); !members.empty();) {
        const der::Element member = members.read();
        der::append(content, certificates ? Bytes(member.whole.begin(), member.whole.end())
                                          : rewritten(member, form, depth + 1));
    }
    return withLength(element.tag, content, form);
}

struct Row {
    const char* name;
    Form form;
};

constexpr Row rows[] = {
    {"IndefiniteLengths", {true, 0}},
    {"IndefiniteLengthsAndSegments", {true, 5}},
    {"LongLengths", {false, 0}},
    {"LongLengthsAndSegments", {false, 7}},
};

class Ber : public testing::TestWithParam<Row> {};

TEST_P(Ber, IsReadAsDerIs) {
    const Bytes content = bytes("the content of the message");
    const Signer signer = makeSigner(KeyKind::Gost256);
    SignOptions options;
    options.streamed = false;
    options.attributes = someAttributes();
    const Bytes plain = sign({signer}, content, options);
    const Bytes message = rewritten(der::readOnly(plain), GetParam().form);
    ASSERT_NE(message, plain);
    for (const std::size_t chunk : {whole, std::size_t{1}, std::size_t{13}}) {
        VerifyOptions verify;
        verify.chunk = chunk;
        const Verdict verdict = verifyStreamed(message, verify);
        EXPECT_EQ(verdict.error, 0U) << std::hex << verdict.error;
        EXPECT_EQ(verdict.content, content);
        EXPECT_EQ(verdict.certificates, std::vector<Bytes>{signer.certificate});
    }
    // Adding an attribute brings the message back to DER.
    const Bytes token = der::sequence({der::objectIdentifier("1.2.3"), der::setOf({der::integer(1)})});
    const Msg msg = Msg::decode();
    ASSERT_EQ(msg.feed(message), 0U);
    ASSERT_EQ(msg.addUnsignedAttribute(0, token), 0U);
    const Bytes grown = msg.param(capi::CMSG_ENCODED_MESSAGE);
    EXPECT_EQ(grown.size(), plain.size() + token.size() + 2) << "the attribute and the header of its set";
    const TempFolder folder;
    writeFile(folder.path() / "message", grown);
    EXPECT_EQ(run(folder, "openssl cms -verify -binary -noverify -inform DER -in message"), 0) << output(folder);
    writeFile(folder.path() / "message", message);
    EXPECT_EQ(run(folder, "openssl cms -verify -binary -noverify -inform DER -in message"), 0) << output(folder);
}

INSTANTIATE_TEST_SUITE_P(Forms, Ber, testing::ValuesIn(rows), [](const auto& row) { return row.param.name; });

} // namespace
} // namespace klunortredi::test
