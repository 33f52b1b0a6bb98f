// GOST block ciphers, modes and wrapping against published examples.
#include "core/error.hpp"
#include "core/hex.hpp"
#include "crypto/gost28147_wrap.hpp"
#include "crypto/gost_cfb.hpp"
#include "crypto/gost_modes.hpp"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace klunortredi::csp;

Bytes hex(std::string_view text) {
    std::string digits(text);
    std::erase(digits, ' ');
    return fromHex(digits).value();
}

template <class Octets>
std::string text(const Octets& octets) {
    return toHex(ByteView(octets.data(), octets.size()));
}

GostKeyView keyOf(const Bytes& octets) {
    return ByteView(octets).first<gostKeySize>();
}

const Bytes kuznyechikKey = hex("8899aabbccddeeff0011223344556677fedcba98765432100123456789abcdef");
const Bytes magmaKey = hex("ffeeddccbbaa99887766554433221100f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");

/// Encryption of one block.
std::string encrypted(Gost2015 cipher, const Bytes& key, const Bytes& block) {
    Bytes out(block.size());
    makeBlockCipher(cipher, keyOf(key))->encryptBlocks(block, out.data());
    return text(out);
}

TEST(GostCipher, KuznyechikEncryptsTheExampleOfRfc7801) {
    EXPECT_EQ(encrypted(Gost2015::Kuznyechik, kuznyechikKey, hex("1122334455667700ffeeddccbbaa9988")),
              "7f679d90bebc24305a468d42b9d4edcd");
}

TEST(GostCipher, MagmaEncryptsTheExampleOfRfc8891) {
    EXPECT_EQ(encrypted(Gost2015::Magma, magmaKey, hex("fedcba9876543210")), "4ee901e5c2d8ca3d");
}

TEST(GostCipher, DecryptionUndoesEncryptionForEveryParameterSet) {
    for (const char* oid : {"1.2.643.2.2.31.0", "1.2.643.2.2.31.1", "1.2.643.2.2.31.2", "1.2.643.2.2.31.3",
                            "1.2.643.2.2.31.4", "1.2.643.7.1.2.5.1.1"}) {
        const Gost28147ParamSet* const set = findGost28147ParamSet(oid);
        ASSERT_NE(set, nullptr) << oid;
        const Gost28147 cipher(*set, keyOf(magmaKey));
        const Gost28147::Block plain{1, 2, 3, 4, 5, 6, 7, 8};
        Gost28147::Block block = plain;
        cipher.encrypt(block);
        EXPECT_NE(block, plain);
        cipher.decrypt(block);
        EXPECT_EQ(block, plain);
    }
    EXPECT_EQ(findGost28147ParamSet("1.2.643.2.2.31.5"), nullptr);
}

// RFC 8645, appendix A: sections of 256 bits.
TEST(GostCipher, KuznyechikCtrAcpkmEncryptsTheExampleOfRfc8645) {
    Bytes data = hex("1122334455667700ffeeddccbbaa9988"
                     "00112233445566778899aabbcceeff0a"
                     "112233445566778899aabbcceeff0a00"
                     "2233445566778899aabbcceeff0a0011"
                     "33445566778899aabbcceeff0a001122"
                     "445566778899aabbcceeff0a00112233"
                     "5566778899aabbcceeff0a0011223344");
    const std::string expected = "f195d8bec10ed1dbd57b5fa240bda1b8"
                                 "85eee733f6a13e5df33ce4b33c45dee4"
                                 "4bceeb8f646f4c55001706275e85e800"
                                 "587c4df568d094393e4834afd0805046"
                                 "cf30f57686aeece11cfc6c316b8a896e"
                                 "dffd07ec813636460c4f3b743423163e"
                                 "6409a9c282fac8d469d221e7fbd6de5d";
    Bytes pieces = data;
    CtrMode(Gost2015::Kuznyechik, keyOf(kuznyechikKey), hex("1234567890abcef0"), 32).apply(data);
    EXPECT_EQ(text(data), expected);
    CtrMode mode(Gost2015::Kuznyechik, keyOf(kuznyechikKey), hex("1234567890abcef0"), 32);
    for (std::size_t at = 0; at < pieces.size();) { // pieces that end anywhere change nothing
        const std::size_t size = std::min<std::size_t>(1 + at % 7, pieces.size() - at);
        mode.apply(std::span(pieces).subspan(at, size));
        at += size;
    }
    EXPECT_EQ(text(pieces), expected);
}

// GOST R 34.13-2015, A.1.6 and A.2.6: the first half of each.
TEST(GostCipher, OmacOfTheStandardsExamples) {
    Omac kuznyechik(Gost2015::Kuznyechik, keyOf(kuznyechikKey));
    kuznyechik.update(hex("1122334455667700ffeeddccbbaa998800112233445566778899aabbcceeff0a"
                          "112233445566778899aabbcceeff0a002233445566778899aabbcceeff0a0011"));
    EXPECT_EQ(text(kuznyechik.finish()).substr(0, 16), "336f4d296059fbe3");
    Omac magma(Gost2015::Magma, keyOf(magmaKey));
    magma.update(hex("92def06b3c130a59db54c704f8189d204a98fb2e67a8024c8912409b17b57e41"));
    EXPECT_EQ(text(magma.finish()).substr(0, 8), "154e7210");
}

// RFC 7836, appendix B: KDF_TREE_GOSTR3411_2012_256 with R = 1 and 512 bits.
TEST(GostCipher, KdfTreeGivesTheExampleOfRfc7836) {
    const Bytes key = hex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
    EXPECT_EQ(text(kdfTree512(key, "\x26\xbd\xb8\x78", hex("af21434145656378"))),
              "22b6837845c6bef65ea71672b265831086d3c76aebe6dae91cad51d83f79d16b"
              "074c9330599d7f8d712fca54392f4ddde93751206b3584c8f43f9e6dc51531f9");
}

// RFC 9189, appendix A.
TEST(GostCipher, KExp15GivesTheMagmaExampleOfRfc9189) {
    const Bytes key = hex("8899aabbccddeeff0011223344556677fedcba98765432100123456789abcdef");
    const Bytes encryptionKey = hex("202122232425262728292a2b2c2d2e2f38393a3b3c3d3e3f3031323334353637");
    const Bytes macKey = hex("08090a0b0c0d0e0f0001020304050607101112131415161718191a1b1c1d1e1f");
    const Bytes iv = hex("67bed654");
    Bytes exported = exportKey(Gost2015::Magma, key, keyOf(macKey), keyOf(encryptionKey), iv);
    EXPECT_EQ(text(exported), "cfd5a12d5b81b6e1e99c916d07900c6ac12703fb3abded55567bf3742c899c75"
                              "5dafe7b42e3a8bd9");
    EXPECT_EQ(text(importKey(Gost2015::Magma, exported, keyOf(macKey), keyOf(encryptionKey), iv)), text(key));
    exported.back() ^= 1;
    EXPECT_THROW(importKey(Gost2015::Magma, exported, keyOf(macKey), keyOf(encryptionKey), iv), ApiError);
}

TEST(GostCipher, UnwrappingRefusesAnyChangedOctet) {
    const Gost28147::Block ukm{1, 2, 3, 4, 5, 6, 7, 8};
    for (const Gost28147Wrap wrap : {Gost28147Wrap::Plain, Gost28147Wrap::CryptoPro}) {
        const auto good = wrapGost28147(wrap, gost28147SetZ(), keyOf(kuznyechikKey), ukm, keyOf(magmaKey));
        EXPECT_EQ(text(unwrapGost28147(wrap, gost28147SetZ(), keyOf(kuznyechikKey), ukm, good)), text(magmaKey));
        for (std::size_t i = 0; i < good.encryptedKey.size(); ++i) {
            auto changed = good;
            changed.encryptedKey[i] ^= 1;
            EXPECT_THROW(unwrapGost28147(wrap, gost28147SetZ(), keyOf(kuznyechikKey), ukm, changed), ApiError);
        }
        auto changed = good;
        changed.mac[0] ^= 1;
        EXPECT_THROW(unwrapGost28147(wrap, gost28147SetZ(), keyOf(kuznyechikKey), ukm, changed), ApiError);
    }
}

// RFC 4357 gives the test set no meshing, and programs mesh all the same: nobody knows how such a message was made.
TEST(GostCipher, TheTestParameterSetEndsBeforeMeshingWouldBegin) {
    GostCfb cfb(*findGost28147ParamSet("1.2.643.2.2.31.0"), keyOf(magmaKey), Gost28147::Block{});
    Bytes data(1024);
    cfb.encrypt(data);
    Bytes more(1);
    EXPECT_THROW(cfb.encrypt(more), ApiError);
}

} // namespace
