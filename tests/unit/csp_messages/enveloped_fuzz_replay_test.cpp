// The properties of the fuzz target over enveloped messages made here, damaged, and over the published ones.

#include "enveloped_support.hpp"

#include <gtest/gtest.h>

extern "C" int fuzzEnvelopedDecoder(const std::uint8_t* data, std::size_t size);

namespace klunortredi::test {
namespace {

void replay(const Bytes& input) {
    ASSERT_EQ(fuzzEnvelopedDecoder(input.data(), input.size()), 0);
}

class EnvelopedFuzzReplay : public testing::TestWithParam<const char*> {};

TEST_P(EnvelopedFuzzReplay, HoldsForDamagedMessages) {
    const Signer rsa = makeSigner(KeyKind::Rsa);
    const Signer gost = makeSigner(KeyKind::Gost256);
    const Bytes key = contentKeyFor(GetParam());
    const Bytes message = craftEnveloped(GetParam(), key, patternOf(40),
                                         {transportInfo(rsa, csp::TransportForm::RsaPkcs1, key),
                                          agreementInfo({gost}, csp::AgreementForm::GostCryptoPro, key)});
    replay(message);
    constexpr std::size_t stride = 9; // each input costs a dozen operations with private keys
    for (std::size_t i = 0; i < message.size(); i += stride) {
        Bytes damaged = message;
        damaged[i] ^= static_cast<std::uint8_t>(1U << (i % 8));
        replay(damaged);
        damaged.resize(i);
        replay(damaged);
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, EnvelopedFuzzReplay,
                         testing::Values("aes-256-cbc", "aes-256-gcm", "magma-ctr-acpkm-omac"),
                         [](const auto& row) { return "Row" + std::to_string(row.index); });

TEST(EnvelopedFuzzReplayCorpora, HoldsForPublishedMessages) {
    useOwnHome();
    const auto folder = corpora() / "malformed" / "ossl-cms";
    if (!std::filesystem::is_directory(folder)) {
        GTEST_SKIP() << "the folder of published cases is not at hand (KLUNORTREDI_CORPORA)";
    }
    std::size_t replayed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        replay(readFile(entry.path()));
        ++replayed;
    }
    EXPECT_GT(replayed, 100U);
}

} // namespace
} // namespace klunortredi::test
