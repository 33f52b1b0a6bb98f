#include "asn1/tlv_parser.hpp"

#include "core/error.hpp"
#include "support.hpp"

#include <gtest/gtest.h>

namespace klunortredi::test {
namespace {

using csp::TlvElement;
using csp::TlvHandler;
using csp::TlvParser;

constexpr std::size_t depth = 8;

/// Writes down what it is told.
class Recorder final : public TlvHandler {
public:
    explicit Recorder(std::uint8_t opaque = 0) : opaque_(opaque) {}

    Content begin(const TlvElement& element) override {
        flush();
        log += "(" + std::to_string(element.identifier) + "@" + std::to_string(element.position) +
               (element.indefinite ? "*" : ":" + std::to_string(element.length));
        return element.identifier == opaque_ ? Content::Octets : Content::Members;
    }
    void octets(ByteView piece) override { text_.insert(text_.end(), piece.begin(), piece.end()); }
    void end(ByteView endOfContents, std::uint64_t position) override {
        flush();
        log += (endOfContents.empty() ? ")" : "*)") + std::to_string(position);
    }

    std::string log;

private:
    void flush() {
        if (!text_.empty()) {
            log += "=" + std::string(text_.begin(), text_.end());
        }
        text_.clear();
    }

    std::uint8_t opaque_;
    Bytes text_;
};

std::string parse(const Bytes& octets, std::size_t chunk, std::uint8_t opaque = 0) {
    Recorder recorder(opaque);
    TlvParser parser(recorder, depth);
    for (std::size_t at = 0; at < octets.size(); at += chunk) {
        parser.feed(ByteView(octets).subspan(at, std::min(chunk, octets.size() - at)));
    }
    parser.finish();
    return recorder.log;
}

/// The code with which an input is refused, the same in any chunks; 0 when it is taken.
DWORD refusal(const Bytes& octets) {
    std::vector<DWORD> codes;
    for (const std::size_t chunk : {std::size_t{1}, std::size_t{2}, std::size_t{1000}}) {
        try {
            parse(octets, chunk);
            codes.push_back(0);
        } catch (const csp::ApiError& error) {
            codes.push_back(error.code());
        }
    }
    EXPECT_EQ(codes[0], codes[1]);
    EXPECT_EQ(codes[0], codes[2]);
    return codes[0];
}

TEST(TlvParser, TellsNestedElementsOfDefiniteLength) {
    const Bytes good{0x30, 0x08, 0x04, 0x02, 'h', 'i', 0x30, 0x00, 0x05, 0x00};
    for (const std::size_t chunk : {std::size_t{1}, std::size_t{3}, std::size_t{100}}) {
        EXPECT_EQ(parse(good, chunk), "(48@0:8(4@2:2=hi)6(48@6:0)8(5@8:0)10)10");
    }
}

TEST(TlvParser, TellsElementsOfIndefiniteLength) {
    const Bytes octets{0x30, 0x80, 0x24, 0x80, 0x04, 0x01, 'x', 0x00, 0x00, 0x00, 0x00};
    for (const std::size_t chunk : {std::size_t{1}, std::size_t{3}, std::size_t{100}}) {
        EXPECT_EQ(parse(octets, chunk), "(48@0*(36@2*(4@4:1=x)7*)9*)11");
    }
}

TEST(TlvParser, HandsConstructedContentOutAsOctetsWhenAsked) {
    const Bytes octets{0x30, 0x04, 0x31, 0x02, 'a', 'b'};
    EXPECT_EQ(parse(octets, 1, 0x31), "(48@0:4(49@2:2=ab)6)6");
}

TEST(TlvParser, TakesLengthsWithLeadingZerosAndLongTagNumbers) {
    EXPECT_EQ(parse({0x04, 0x84, 0, 0, 0, 1, 'x'}, 1), "(4@0:1=x)7");
    EXPECT_EQ(parse({0x9F, 0x83, 0x01, 0x01, 'x'}, 1), "(159@0:1=x)5");
    Bytes longest{0x04, 0xFE};
    longest.resize(2 + 125);
    longest.push_back(1);
    longest.push_back('x');
    EXPECT_EQ(parse(longest, 1), "(4@0:1=x)129");
}

TEST(TlvParser, CountsInSixtyFourBits) {
    /// Counts octets only: the content is longer than 32 bits can tell.
    class Counter final : public TlvHandler {
    public:
        Content begin(const TlvElement&) override { return Content::Members; }
        void octets(ByteView piece) override { count += piece.size(); }
        void end(ByteView, std::uint64_t) override {}
        std::uint64_t count = 0;
    };
    constexpr std::uint64_t length = (std::uint64_t{4} << 30U) + 1;
    Counter counter;
    TlvParser parser(counter, depth);
    parser.feed(Bytes{0x04, 0x85, 0x01, 0x00, 0x00, 0x00, 0x01});
    const Bytes block(16U << 20U);
    for (std::uint64_t fed = 0; fed < length; fed += block.size()) {
        parser.feed(ByteView(block).first(std::min<std::uint64_t>(block.size(), length - fed)));
    }
    parser.finish();
    EXPECT_EQ(counter.count, length);
}

TEST(TlvParser, RefusesWhatIsNotBer) {
    constexpr DWORD corrupt = capi::CRYPT_E_ASN1_CORRUPT;
    EXPECT_EQ(refusal({0x04, 0x80, 0x00, 0x00}), corrupt) << "a primitive element of indefinite length";
    EXPECT_EQ(refusal({0x04, 0xFF, 0x00}), corrupt) << "a reserved length";
    EXPECT_EQ(refusal({0x00, 0x00}), corrupt) << "end-of-contents outside";
    EXPECT_EQ(refusal({0x30, 0x02, 0x00, 0x00}), corrupt) << "end-of-contents in a definite element";
    EXPECT_EQ(refusal({0x30, 0x80, 0x00, 0x01, 'x', 0x00, 0x00}), corrupt) << "end-of-contents with content";
    EXPECT_EQ(refusal({0x30, 0x80, 0x20, 0x00, 0x00, 0x00}), corrupt) << "constructed end-of-contents";
    EXPECT_EQ(refusal({0x30, 0x80, 0x00, 0x81, 0x00, 0x00, 0x00}), corrupt) << "end-of-contents in the long form";
    EXPECT_EQ(refusal({0x30, 0x03, 0x04, 0x02, 'x', 'y'}), corrupt) << "longer than its parent";
    EXPECT_EQ(refusal({0x30, 0x01, 0x04, 0x00}), corrupt) << "a header across its parent's end";
    EXPECT_EQ(refusal({0x30, 0x04, 0x30, 0x80, 0x05, 0x00, 0x00, 0x00}), corrupt)
        << "indefinite, not closed in its parent";
    EXPECT_EQ(refusal({0x05, 0x00, 'x'}), capi::CRYPT_E_ASN1_NOEOD) << "octets behind the element";
    EXPECT_EQ(refusal({0x05, 0x00, 0x00, 0x00, 'x'}), capi::CRYPT_E_ASN1_NOEOD) << "octets behind padding";
    EXPECT_EQ(refusal({0x1F, 0x80, 0x01, 0x00}), corrupt) << "a tag number with leading zeros";
    EXPECT_EQ(refusal({0x1F, 0x05, 0x00}), corrupt) << "a small tag number in the long form";
    EXPECT_EQ(refusal({0x1F, 0x81, 0x81, 0x81, 0x81, 0x81, 0x01, 0x00}), corrupt) << "an endless tag number";
}

TEST(TlvParser, TakesPaddingOfZerosBehindTheElement) {
    EXPECT_EQ(refusal({0x05, 0x00, 0x00, 0x00, 0x00}), 0U);
}

TEST(TlvParser, RefusesLengthsBeyondSixtyFourBits) {
    EXPECT_EQ(refusal({0x04, 0x89, 1, 0, 0, 0, 0, 0, 0, 0, 0}), capi::CRYPT_E_ASN1_LARGE);
    EXPECT_EQ(refusal({0x04, 0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), capi::CRYPT_E_ASN1_CORRUPT)
        << "more than can follow";
}

TEST(TlvParser, RefusesNestingBeyondTheLimit) {
    Bytes deepest;
    for (std::size_t i = 0; i < depth; ++i) {
        deepest.insert(deepest.end(), {0x30, 0x80});
    }
    Bytes tooDeep = deepest;
    tooDeep.insert(tooDeep.end(), {0x30, 0x80});
    EXPECT_EQ(refusal(deepest), capi::CRYPT_E_ASN1_EOD);
    EXPECT_EQ(refusal(tooDeep), capi::CRYPT_E_ASN1_LARGE);
}

TEST(TlvParser, TellsTruncationFromDamage) {
    const Bytes octets{0x30, 0x80, 0x24, 0x80, 0x04, 0x01, 'x', 0x00, 0x00, 0x00, 0x00};
    for (std::size_t size = 0; size < octets.size(); ++size) {
        EXPECT_EQ(refusal({octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(size)}), capi::CRYPT_E_ASN1_EOD)
            << size;
    }
}

} // namespace
} // namespace klunortredi::test
