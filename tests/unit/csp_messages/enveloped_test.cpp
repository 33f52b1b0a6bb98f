// Enveloped messages made by the openssl command, opened through the entry points.

#include "enveloped_support.hpp"

#include "messages/ciphertext_spool.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace klunortredi::test {
namespace {

/// Nothing, a block, and more than two sections of any kind: meshing after 1 KiB, ACPKM after 8 KiB with Magma and
/// after 256 KiB with Kuznyechik.
constexpr std::size_t sizes[] = {0, 16, 600000};

/// How the message is fed and when the key comes must not matter.
void expectOpens(const Signer& recipient, const Bytes& message, const Bytes& plaintext, const std::string& what) {
    const Opened expected{0, plaintext, 1};
    EXPECT_TRUE(open(recipient, message) == expected) << what;
    EXPECT_TRUE(open(recipient, message, {.chunk = message.size() > 100000 ? 4099U : 1U}) == expected) << what;
    EXPECT_TRUE(open(recipient, message, {.chunk = message.size() > 100000 ? 1021U : 7U, .keyFirst = true}) == expected)
        << what;
    EXPECT_TRUE(open(recipient, message, {.keyFirst = true}) == expected) << what;
    EXPECT_TRUE(open(recipient, message, {.streamed = false}).plaintext == plaintext) << what;
}

struct Form {
    KeyKind key;
    const char* words;
};

class OpensslEnveloped : public testing::TestWithParam<Form> {};

TEST_P(OpensslEnveloped, IsOpened) {
    const Signer recipient = makeSigner(GetParam().key);
    const TempFolder folder;
    for (const std::size_t size : sizes) {
        const Bytes plaintext = patternOf(size);
        const Bytes message = opensslEncrypt(folder, {recipient.certificate}, plaintext, GetParam().words);
        expectOpens(recipient, message, plaintext, GetParam().words + (" " + std::to_string(size)));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Forms, OpensslEnveloped,
    testing::Values(Form{KeyKind::Rsa, "-aes-128-cbc"}, Form{KeyKind::Rsa, "-aes-192-cbc -stream -indef"},
                    Form{KeyKind::Rsa, "-aes-256-cbc"}, Form{KeyKind::Rsa, "-des3"}, Form{KeyKind::Rsa, "-aes-256-gcm"},
                    Form{KeyKind::Rsa, "-aes-128-gcm"}, Form{KeyKind::Gost256, "-gost89"},
                    Form{KeyKind::Gost512, "-gost89"}, Form{KeyKind::Gost2001, "-gost89"},
                    Form{KeyKind::Gost256, "-kuznyechik-ctr-acpkm"}, Form{KeyKind::Gost512, "-magma-ctr-acpkm"},
                    Form{KeyKind::Gost256, "-magma-ctr-acpkm-omac"},
                    Form{KeyKind::Gost512, "-kuznyechik-ctr-acpkm-omac"}),
    [](const auto& row) { return "Row" + std::to_string(row.index); });

} // namespace
} // namespace klunortredi::test
