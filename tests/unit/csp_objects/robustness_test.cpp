#include "objects/name_text.hpp"
#include "samples.hpp"
#include "support.hpp"

#include <random>

namespace klunortredi::csp::test {

namespace {

using namespace capi;

/// The errors that octets from a stranger may lead to.
bool isDecodingError(DWORD code) {
    return code == CRYPT_E_ASN1_EOD || code == CRYPT_E_ASN1_CORRUPT || code == CRYPT_E_ASN1_LARGE ||
           code == CRYPT_E_ASN1_BADTAG || code == CRYPT_E_ASN1_UTF8;
}

/// Decodes `der`; what comes out must encode to octets that decode and encode to themselves. Returns whether `der` was
/// accepted.
bool checkStability(const char* structType, ByteView der) {
    DWORD size = 0;
    const DWORD refusal = failureOf([&] { decodeObject(X509_ASN_ENCODING, structType, der, 0, nullptr, &size); });
    if (refusal != ERROR_SUCCESS) {
        EXPECT_TRUE(isDecodingError(refusal)) << std::hex << refusal;
        return false;
    }
    const Decoded<std::byte> decoded(structType, der);
    Bytes encoded;
    // A value may be readable and yet have no encoding of ours: a zero character inside text.
    const DWORD error = failureOf([&] { encoded = encodeObject(X509_ASN_ENCODING, structType, &*decoded); });
    if (error != ERROR_SUCCESS) {
        EXPECT_TRUE(error == CRYPT_E_BAD_ENCODE || (error & 0xFFFFFFF0) == 0x80092020) << std::hex << error;
        return true;
    }
    const Decoded<std::byte> again(structType, encoded);
    EXPECT_EQ(encodeObject(X509_ASN_ENCODING, structType, &*again), encoded);
    return true;
}

class Mutator {
public:
    explicit Mutator(unsigned seed) : random_(seed) {}

    Bytes mutate(Bytes der) {
        const std::size_t changes = 1 + below(3);
        for (std::size_t i = 0; i < changes; ++i) {
            change(der);
        }
        return der;
    }

    Bytes noise(std::size_t largest) {
        Bytes bytes(below(largest + 1));
        for (std::uint8_t& octet : bytes) {
            octet = static_cast<std::uint8_t>(below(256));
        }
        return bytes;
    }

private:
    std::size_t below(std::size_t bound) { return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_); }

    void change(Bytes& der) {
        if (der.empty()) {
            der.push_back(0x30);
            return;
        }
        const auto at = static_cast<std::ptrdiff_t>(below(der.size()));
        switch (below(5)) {
        case 0:
            der[static_cast<std::size_t>(at)] ^= static_cast<std::uint8_t>(1U << below(8));
            break;
        case 1: {
            constexpr std::array<std::uint8_t, 12> interesting{0x00, 0x01, 0x02, 0x04, 0x06, 0x0C,
                                                               0x30, 0x31, 0x7F, 0x80, 0xA0, 0xFF};
            der[static_cast<std::size_t>(at)] = interesting[below(interesting.size())];
            break;
        }
        case 2:
            der.erase(der.begin() + at);
            break;
        case 3:
            der.insert(der.begin() + at, static_cast<std::uint8_t>(below(256)));
            break;
        default:
            der.resize(static_cast<std::size_t>(at));
        }
    }

    std::mt19937 random_;
};

TEST(CodecRobustness, EverySampleIsStable) {
    for (const Sample& sample : samples()) {
        EXPECT_TRUE(checkStability(sample.structType, sample.der));
    }
}

TEST(CodecRobustness, ASampleCutAnywhereOrContinuedIsRefused) {
    for (const Sample& sample : samples()) {
        for (std::size_t size = 0; size < sample.der.size(); ++size) {
            EXPECT_FALSE(checkStability(sample.structType, ByteView(sample.der).first(size)));
        }
        Bytes longer = sample.der;
        longer.push_back(0);
        EXPECT_FALSE(checkStability(sample.structType, longer));
    }
}

TEST(CodecRobustness, MutatedSamplesAreRefusedOrStable) {
    Mutator mutator(20261120);
    std::size_t accepted = 0;
    for (const Sample& sample : samples()) {
        for (int i = 0; i < 1500; ++i) {
            accepted += checkStability(sample.structType, mutator.mutate(sample.der)) ? 1U : 0U;
        }
    }
    EXPECT_GT(accepted, 1000U); // the mutations reach behind the outermost header
}

TEST(CodecRobustness, EverySampleUnderEveryOtherTypeIsRefusedOrStable) {
    for (const Sample& one : samples()) {
        for (const Sample& other : samples()) {
            checkStability(one.structType, other.der);
        }
    }
}

TEST(CodecRobustness, NoiseIsRefusedOrStable) {
    Mutator mutator(7);
    for (const Sample& sample : samples()) {
        for (int i = 0; i < 500; ++i) {
            checkStability(sample.structType, mutator.noise(40));
        }
    }
}

TEST(CodecRobustness, MutatedNamesHaveATextOrAnError) {
    Mutator mutator(99);
    const Bytes name =
        hex("30 2B 31 0B 30 09 06 03 55 04 06 13 02 52 55 31 1C 30 0B 06 03 55 04 03 0C 04 D0 98 D0 B2 30 "
            "0D 06 05 2A 85 03 64 01 12 04 31 32 33 34");
    for (int i = 0; i < 20000; ++i) {
        const Bytes der = mutator.mutate(name);
        const DWORD error = failureOf([&] { nameToText(der, CERT_OID_NAME_STR); });
        EXPECT_TRUE(error == ERROR_SUCCESS || isDecodingError(error)) << std::hex << error;
    }
}

} // namespace

} // namespace klunortredi::csp::test
