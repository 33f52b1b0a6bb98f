// One message's signers added to another, on messages of a few octets.

#include "signatures_fixture.hpp"

#include "crypto/wincrypt/tools_signers.hpp"

#include <sstream>
#include <stdexcept>

namespace wincrypt_signatures {
namespace {

using orvik::plugin::wincrypt::tools::addSigners;

/// A value of definite length, below 64 KiB.
std::string der(int tag, const std::string& contents) {
    std::string head(1, static_cast<char>(tag));
    if (contents.size() >= 0x100) {
        head += {'\x82', static_cast<char>(contents.size() >> 8U)};
    } else if (contents.size() >= 0x80) {
        head += '\x81';
    }
    return head + static_cast<char>(contents.size() & 0xFFU) + contents;
}

/// A value of indefinite length.
std::string ber(int tag, const std::string& contents) {
    return std::string{static_cast<char>(tag), '\x80'} + contents + std::string(2, '\0');
}

using Wrap = std::string (*)(int, const std::string&);

const std::string data("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x01", 11);
const std::string signedData("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02", 11);

std::string algorithm(char number, const std::string& parameters = {}) {
    return der(0x30, der(0x06, {'\x2A', number}) + parameters);
}

struct Draft {
    char version = 1;
    std::string algorithms = algorithm(1);
    std::string content = der(0x30, data);
    std::string certificates;
    std::string crls;
    std::string signers;
};

std::string message(const Draft& draft, Wrap wrap = der) {
    const auto version = der(0x02, std::string(1, draft.version));
    const auto certificates = draft.certificates.empty() ? std::string() : der(0xA0, draft.certificates);
    const auto crls = draft.crls.empty() ? std::string() : der(0xA1, draft.crls);
    return wrap(0x30, signedData + wrap(0xA0, wrap(0x30, version + der(0x31, draft.algorithms) + draft.content +
                                                             certificates + crls + der(0x31, draft.signers))));
}

std::string signer(char number) {
    return der(0x30, {number});
}

std::string merged(const std::string& octets, const std::string& added, std::size_t skipped = 0) {
    std::istringstream in(octets);
    in.seekg(static_cast<std::streamoff>(skipped));
    std::string out;
    addSigners(in, added, [&out](const unsigned char* piece, std::size_t size) {
        EXPECT_GT(size, 0U);
        out.append(reinterpret_cast<const char*>(piece), size);
        return true;
    });
    return out;
}

class AddSignersTest : public SignaturesFixture {
protected:
    AddSignersTest() {
        first.content = der(0x30, data + der(0xA0, der(0x04, "content")));
        first.certificates = der(0x30, "B");
        first.crls = der(0x30, "L");
        first.signers = signer(2);
        second.algorithms = algorithm(2);
        second.certificates = der(0x30, "A") + der(0x30, "B");
        second.signers = signer(1);
    }
    /// A message without content and certificates.
    static Draft bare(const std::string& signers) {
        Draft draft;
        draft.signers = signers;
        return draft;
    }

    Draft first;
    Draft second;

    static DWORD refusal(const std::string& octets, const std::string& added) {
        const Thrown thrown = thrownBy<SystemException>([&] { merged(octets, added); });
        EXPECT_EQ(thrown.file, "tools_signers");
        return static_cast<DWORD>(thrown.code);
    }
};

TEST_F(AddSignersTest, JoinsWhatBothMessagesHave) {
    Draft both = first;
    both.algorithms = algorithm(1) + algorithm(2);
    both.certificates = der(0x30, "A") + der(0x30, "B");
    both.signers = signer(1) + signer(2);
    EXPECT_EQ(merged(message(first), message(second)), message(both));
}

TEST_F(AddSignersTest, KeepsTheFormOfTheLengths) {
    Draft long1 = first;
    long1.content = ber(0x30, data + ber(0xA0, ber(0x24, der(0x04, "con") + der(0x04, "tent"))));
    Draft both = long1;
    both.algorithms = algorithm(1) + algorithm(2);
    both.certificates = der(0x30, "A") + der(0x30, "B");
    both.signers = signer(1) + signer(2);
    EXPECT_EQ(merged(message(long1, ber), message(second)), message(both, ber));
    EXPECT_EQ(merged(message(long1), message(second, ber)), message(both));
}

TEST_F(AddSignersTest, GrowsLengthsOverTheirSteps) {
    for (const std::size_t size : {90U, 120U, 127U, 200U, 250U, 60000U}) {
        Draft big = first;
        const std::string filling(size, 'x');
        big.content = der(0x30, data + der(0xA0, der(0x04, filling)));
        Draft both = big;
        both.algorithms = algorithm(1) + algorithm(2);
        both.certificates = der(0x30, "A") + der(0x30, "B");
        both.signers = signer(1) + signer(2);
        EXPECT_EQ(merged(message(big), message(second)), message(both)) << size;
    }
}

TEST_F(AddSignersTest, LeavesAnOrderThatIsNotOfDerAsItIs) {
    Draft odd = first;
    odd.signers = signer(3) + signer(2);
    odd.certificates = der(0x30, "Z") + der(0x30, "Y");
    Draft both = odd;
    both.algorithms = algorithm(1) + algorithm(2);
    both.certificates += der(0x30, "A") + der(0x30, "B");
    both.signers += signer(1);
    EXPECT_EQ(merged(message(odd), message(second)), message(both));
}

TEST_F(AddSignersTest, ADigestAlgorithmIsThereOnceWhateverItsParameters) {
    Draft null = second;
    null.algorithms = algorithm(1, std::string("\x05\x00", 2));
    EXPECT_THAT(merged(message(first), message(null)), testing::HasSubstr(der(0x31, algorithm(1))));
}

TEST_F(AddSignersTest, TakesTheLargerVersion) {
    Draft three = second;
    three.version = 3;
    EXPECT_THAT(merged(message(first), message(three)), testing::HasSubstr("\x02\x01\x03"));
    Draft typed = first;
    typed.version = 4;
    EXPECT_THAT(merged(message(typed), message(three)), testing::HasSubstr("\x02\x01\x04"));
}

TEST_F(AddSignersTest, MessageWithoutCertificatesGetsThem) {
    EXPECT_THAT(merged(message(bare(signer(2))), message(second)), testing::HasSubstr(der(0xA0, second.certificates)));
    EXPECT_EQ(merged(message(bare(signer(2))), message(bare(signer(2)))), message(bare(signer(2) + signer(2))));
}

TEST_F(AddSignersTest, ReadsFromWhereTheStreamStandsAndLeavesOutWhatFollows) {
    const auto expected = merged(message(first), message(second));
    EXPECT_EQ(merged("text" + message(first) + "text", message(second), 4), expected);
    EXPECT_EQ(merged("text" + message(first, ber) + std::string(9, '\0'), message(second), 4),
              merged(message(first, ber), message(second)));
}

TEST_F(AddSignersTest, OtherContentTypesDoNotMix) {
    Draft other = first;
    other.content = der(0x30, signedData + der(0xA0, der(0x04, "content")));
    EXPECT_EQ(refusal(message(other), message(second)), capi::CRYPT_E_UNEXPECTED_MSG_TYPE);
}

TEST_F(AddSignersTest, OnlySignedDataIsTaken) {
    const auto plain = der(0x30, data + der(0xA0, der(0x04, "content")));
    EXPECT_EQ(refusal(plain, message(second)), capi::CRYPT_E_INVALID_MSG_TYPE);
    EXPECT_EQ(refusal(message(first), plain), capi::CRYPT_E_INVALID_MSG_TYPE);
    EXPECT_EQ(refusal("text", message(second)), capi::CRYPT_E_ASN1_BADTAG);
}

TEST_F(AddSignersTest, EveryTruncationIsRefusedAndWritesNothing) {
    for (const Wrap wrap : {der, ber}) {
        const auto whole = message(first, wrap);
        for (std::size_t size = 0; size < whole.size(); ++size) {
            std::istringstream in(whole.substr(0, size));
            bool written = false;
            EXPECT_THROW(
                addSigners(in, message(second), [&](const unsigned char*, std::size_t) { return written = true; }),
                SystemException)
                << size;
            EXPECT_FALSE(written) << size;
        }
    }
}

TEST_F(AddSignersTest, MalformedHeadsAreRefused) {
    const auto wrapped = [](const std::string& value) { return der(0x30, signedData + der(0xA0, value)); };
    EXPECT_EQ(refusal(std::string("\x30\x89") + std::string(9, '\x01'), message(second)), capi::CRYPT_E_ASN1_LARGE);
    EXPECT_EQ(refusal(std::string("\x30\x88") + std::string(8, '\xFF'), message(second)), capi::CRYPT_E_ASN1_LARGE);
    EXPECT_EQ(refusal(wrapped(der(0x30, std::string("\x02\x80\x00\x00", 4))), message(second)),
              capi::CRYPT_E_ASN1_CORRUPT);
    EXPECT_EQ(refusal(wrapped(der(0x30, std::string("\x1F\x80\x00\x00", 4))), message(second)),
              capi::CRYPT_E_ASN1_CORRUPT);
    std::string deep;
    for (int i = 0; i < 100; ++i) {
        deep += std::string("\x30\x80");
    }
    EXPECT_EQ(refusal(wrapped(deep), message(second)), capi::CRYPT_E_ASN1_LARGE);
}

TEST_F(AddSignersTest, MoreThanMayBeKeptIsRefused) {
    Draft big = first;
    big.certificates.clear();
    for (int i = 0; i < 300; ++i) {
        big.certificates += der(0x30, std::string(60000, 'x'));
    }
    const auto long4 = [](const std::string& tag, const std::string& contents) {
        std::string length = "\x84";
        for (int shift = 24; shift >= 0; shift -= 8) {
            length += static_cast<char>(contents.size() >> static_cast<unsigned>(shift));
        }
        return tag + length + contents;
    };
    const auto version = der(0x02, "\x01");
    const auto octets =
        long4("\x30",
              signedData + long4("\xA0", long4("\x30", version + der(0x31, big.algorithms) + big.content +
                                                           long4("\xA0", big.certificates) + der(0x31, big.signers))));
    EXPECT_EQ(refusal(octets, message(second)), capi::CRYPT_E_ASN1_LARGE);
}

TEST_F(AddSignersTest, MoreElementsThanMayBeKeptAreRefused) {
    Draft many = first;
    many.signers.clear();
    for (int i = 0; i < 8192; ++i) {
        many.signers += std::string("\x30\x00", 2);
    }
    EXPECT_NO_THROW(merged(message(many), message(second)));
    many.signers += std::string("\x30\x00", 2);
    EXPECT_EQ(refusal(message(many), message(second)), capi::CRYPT_E_ASN1_LARGE);
}

TEST_F(AddSignersTest, SinkThatRefusesOrThrowsEndsTheWork) {
    std::istringstream in(message(first));
    EXPECT_EQ(thrownBy<SystemException>(
                  [&] { addSigners(in, message(second), [](const unsigned char*, std::size_t) { return false; }); }),
              (Thrown{code(capi::CRYPT_E_MSG_ERROR), "tools_signers", "addSigners", 0}));
    std::istringstream again(message(first));
    EXPECT_THROW(addSigners(again, message(second),
                            [](const unsigned char*, std::size_t) -> bool { throw std::domain_error("disk full"); }),
                 std::domain_error);
}

TEST_F(AddSignersTest, ServiceIsNotAsked) {
    merged(message(first), message(second));
    EXPECT_THAT(service().trace(), testing::IsEmpty());
}

} // namespace
} // namespace wincrypt_signatures
