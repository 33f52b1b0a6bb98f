#include "asn1/definite.hpp"

#include "core/error.hpp"
#include "support.hpp"

#include <gtest/gtest.h>

namespace klunortredi::test {
namespace {

DWORD refusal(const Bytes& octets) {
    try {
        csp::toDefinite(octets);
        return 0;
    } catch (const csp::ApiError& error) {
        return error.code();
    }
}

TEST(ToDefinite, LeavesDerAsItIs) {
    Bytes der{0x30, 0x82, 0x01, 0x04, 0x04, 0x82, 0x01, 0x00};
    der.resize(der.size() + 256, 0x5A);
    EXPECT_EQ(csp::toDefinite(der), der);
    const Bytes longTag{0xBF, 0x83, 0x01, 0x02, 0x05, 0x00};
    EXPECT_EQ(csp::toDefinite(longTag), longTag);
}

TEST(ToDefinite, ReplacesIndefiniteAndLongLengths) {
    EXPECT_EQ(csp::toDefinite(Bytes{0x30, 0x80, 0x02, 0x81, 0x01, 0x05, 0xA0, 0x80, 0x00, 0x00, 0x00, 0x00}),
              (Bytes{0x30, 0x05, 0x02, 0x01, 0x05, 0xA0, 0x00}));
}

TEST(ToDefinite, JoinsOctetStrings) {
    const Bytes nested{0x24, 0x80, 0x04, 0x01, 'a', 0x24, 0x06, 0x04, 0x01, 'b', 0x04, 0x01, 'c', 0x00, 0x00};
    EXPECT_EQ(csp::toDefinite(nested), (Bytes{0x04, 0x03, 'a', 'b', 'c'}));
}

TEST(ToDefinite, RefusesOctetStringsMadeOfOtherThings) {
    EXPECT_EQ(refusal({0x24, 0x02, 0x05, 0x00}), capi::CRYPT_E_ASN1_BADTAG);
}

TEST(ToDefinite, RefusesWhatIsNotOneElement) {
    EXPECT_EQ(refusal({}), capi::CRYPT_E_ASN1_EOD);
    EXPECT_EQ(refusal({0x05, 0x00, 0x05, 0x00}), capi::CRYPT_E_ASN1_NOEOD);
}

TEST(DefiniteHeader, WritesTheFewestLengthOctets) {
    EXPECT_EQ(csp::definiteHeader(0x04, 0x7F), (Bytes{0x04, 0x7F}));
    EXPECT_EQ(csp::definiteHeader(0x04, 0x80), (Bytes{0x04, 0x81, 0x80}));
    EXPECT_EQ(csp::definiteHeader(0x04, 0x100000000), (Bytes{0x04, 0x85, 1, 0, 0, 0, 0}));
    EXPECT_EQ(csp::definiteHeader(0x04, ~std::uint64_t{0}),
              (Bytes{0x04, 0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
}

} // namespace
} // namespace klunortredi::test
