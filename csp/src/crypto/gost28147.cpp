#include "crypto/gost28147.hpp"

#include "crypto/kuznyechik.hpp"

#include <openssl/crypto.h>

#include <algorithm>
#include <bit>

namespace klunortredi::csp {

namespace {

using namespace std::string_view_literals;

constexpr std::size_t boxes = 8;
constexpr std::size_t boxSize = 16;
/// The boxes of a set as hexadecimal digits, that of the lowest four bits first.
using BoxTexts = std::array<std::string_view, boxes>;

constexpr std::uint32_t digit(char c) {
    return static_cast<std::uint32_t>(c <= '9' ? c - '0' : c - 'A' + 10);
}

constexpr Gost28147Tables tablesOf(const BoxTexts& texts) {
    constexpr unsigned rotation = 11;
    Gost28147Tables tables{};
    for (unsigned byte = 0; byte < tables.size(); ++byte) {
        for (unsigned value = 0; value < tables[byte].size(); ++value) {
            const std::uint32_t low = digit(texts[2 * byte][value % boxSize]);
            const std::uint32_t high = digit(texts[2 * byte + 1][value / boxSize]);
            tables[byte][value] = std::rotl((high << 4U | low) << (8 * byte), rotation);
        }
    }
    return tables;
}

// RFC 4357, 11.2, and RFC 7836, appendix C.
constexpr Gost28147Tables testTables =
    tablesOf({"42F59108E3BCD7A6"sv, "C9FE813A274D60B5"sv, "D8EC739A15246F0B"sv, "E9B25F710DC6A438"sv,
              "3E59680DAB7C21F4"sv, "8F6B19C5D37A0E24"sv, "9BC0367548EF1A2D"sv, "C652B09D3E7AF418"sv});
constexpr Gost28147Tables tablesA =
    tablesOf({"96328B17A4EFC0D5"sv, "37E98AF0526CB4D1"sv, "E462B3D8CF5A0719"sv, "E7ACD13902B4F856"sv,
              "B5198DF0E423C7A6"sv, "3ADC120B75948FE6"sv, "1D297A608C45F3BE"sv, "BAF50CE8623917D4"sv});
constexpr Gost28147Tables tablesB =
    tablesOf({"84B135092EACD67F"sv, "012A4D5C973FB86E"sv, "EC0A92DB758F3614"sv, "750DB6123ACF4E98"sv,
              "27CF95AB140D68E3"sv, "83264DEBC17FA095"sv, "52AB91C374D06F8E"sv, "04BE8371A296FD5C"sv});
constexpr Gost28147Tables tablesC =
    tablesOf({"1BC29D0F458EA763"sv, "017DB4528EFC9A63"sv, "825049FA37CD6E1B"sv, "36015DA8B297EFC4"sv,
              "8DB0451293CE6FA7"sv, "C9B18E247365A0FD"sv, "A968DE20F35B41C7"sv, "7405A2FEC61BD938"sv});
constexpr Gost28147Tables tablesD =
    tablesOf({"FC2A645079ED1B83"sv, "B634CFE27D805A91"sv, "1CB0FE65AD489372"sv, "15ECA70D62B493F8"sv,
              "0C89D2AB73654EF1"sv, "80F325EB1A47C9D6"sv, "306F1E92D8C4BA57"sv, "1A68FB04C3597D2E"sv});
constexpr Gost28147Tables tablesZ =
    tablesOf({"C462A5B9E8D703F1"sv, "68239A5C1E47BD0F"sv, "B3582FADE174C960"sv, "C821D4F670A53E9B"sv,
              "7F5A816D093EB42C"sv, "5DF692CAB78143E0"sv, "8E25691CF4B0DA37"sv, "17ED05834FA69CB2"sv});

constexpr std::array sets{
    Gost28147ParamSet{"1.2.643.2.2.31.0"sv, &testTables, true},
    Gost28147ParamSet{"1.2.643.2.2.31.1"sv, &tablesA, false},
    Gost28147ParamSet{"1.2.643.2.2.31.2"sv, &tablesB, false},
    Gost28147ParamSet{"1.2.643.2.2.31.3"sv, &tablesC, false},
    Gost28147ParamSet{"1.2.643.2.2.31.4"sv, &tablesD, false},
    Gost28147ParamSet{"1.2.643.7.1.2.5.1.1"sv, &tablesZ, false},
};

/// The key that key meshing decrypts (RFC 4357, 2.3.2).
constexpr std::array<std::uint8_t, gostKeySize> meshingConstant{
    0x69, 0x00, 0x72, 0x22, 0x64, 0xC9, 0x04, 0x23, 0x8D, 0x3A, 0xDB, 0x96, 0x46, 0xE9, 0x2A, 0xC4,
    0x18, 0xFE, 0xAC, 0x94, 0x00, 0xED, 0x07, 0x12, 0xC0, 0x86, 0xDC, 0xC2, 0xEF, 0x4C, 0xA9, 0x2B};

constexpr std::uint32_t little(const std::uint8_t* at) noexcept {
    return static_cast<std::uint32_t>(at[0]) | static_cast<std::uint32_t>(at[1]) << 8U |
           static_cast<std::uint32_t>(at[2]) << 16U | static_cast<std::uint32_t>(at[3]) << 24U;
}

constexpr void putLittle(std::uint8_t* at, std::uint32_t value) noexcept {
    for (unsigned i = 0; i < sizeof value; ++i) {
        at[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

std::uint32_t big(const std::uint8_t* at) noexcept {
    return __builtin_bswap32(little(at));
}

std::uint32_t substituted(const Gost28147Tables& tables, std::uint32_t x) noexcept {
    return tables[0][x & 0xFFU] ^ tables[1][x >> 8U & 0xFFU] ^ tables[2][x >> 16U & 0xFFU] ^ tables[3][x >> 24U];
}

/// The two halves of a block. `a` is the one that goes through the S-boxes first.
struct Halves {
    std::uint32_t a;
    std::uint32_t b;
};

using RoundKeys = std::array<std::uint32_t, 8>;

void ascending(const Gost28147Tables& tables, const RoundKeys& key, std::span<Halves> blocks) noexcept {
    for (std::size_t i = 0; i < key.size(); i += 2) {
        for (Halves& halves : blocks) {
            halves.b ^= substituted(tables, halves.a + key[i]);
        }
        for (Halves& halves : blocks) {
            halves.a ^= substituted(tables, halves.b + key[i + 1]);
        }
    }
}

void descending(const Gost28147Tables& tables, const RoundKeys& key, std::span<Halves> blocks) noexcept {
    for (std::size_t i = key.size(); i > 0; i -= 2) {
        for (Halves& halves : blocks) {
            halves.b ^= substituted(tables, halves.a + key[i - 1]);
        }
        for (Halves& halves : blocks) {
            halves.a ^= substituted(tables, halves.b + key[i - 2]);
        }
    }
}

/// 32 rounds; the last one does not swap the halves. Blocks that do not depend on each other go together: the processor
/// works on one while another waits for the tables.
template <std::size_t Count>
void encryptHalves(const Gost28147Tables& tables, const RoundKeys& key, std::array<Halves, Count>& blocks) noexcept {
    ascending(tables, key, blocks);
    ascending(tables, key, blocks);
    ascending(tables, key, blocks);
    descending(tables, key, blocks);
    for (Halves& halves : blocks) {
        std::swap(halves.a, halves.b);
    }
}

void decryptHalves(const Gost28147Tables& tables, const RoundKeys& key, Halves& halves) noexcept {
    const std::span one(&halves, 1);
    ascending(tables, key, one);
    descending(tables, key, one);
    descending(tables, key, one);
    descending(tables, key, one);
    std::swap(halves.a, halves.b);
}

/// The octet orders of the two standards.
struct Gost28147Order {
    static Halves get(const std::uint8_t* at) noexcept { return {little(at), little(at + 4)}; }
    static void put(std::uint8_t* at, const Halves& halves) noexcept {
        putLittle(at, halves.a);
        putLittle(at + 4, halves.b);
    }
};
struct MagmaOrder {
    static Halves get(const std::uint8_t* at) noexcept { return {big(at + 4), big(at)}; }
    static void put(std::uint8_t* at, const Halves& halves) noexcept {
        putLittle(at, __builtin_bswap32(halves.b));
        putLittle(at + 4, __builtin_bswap32(halves.a));
    }
};

template <class Order, std::size_t Count>
void encryptTogether(const Gost28147Tables& tables, const RoundKeys& key, const std::uint8_t* in,
                     std::uint8_t* out) noexcept {
    std::array<Halves, Count> blocks;
    for (std::size_t i = 0; i < Count; ++i) {
        blocks[i] = Order::get(in + i * Gost28147::blockSize);
    }
    encryptHalves(tables, key, blocks);
    for (std::size_t i = 0; i < Count; ++i) {
        Order::put(out + i * Gost28147::blockSize, blocks[i]);
    }
}

template <class Order>
void encryptAll(const Gost28147Tables& tables, const RoundKeys& key, ByteView in, std::uint8_t* out) noexcept {
    constexpr std::size_t together = 4;
    constexpr std::size_t stride = together * Gost28147::blockSize;
    std::size_t at = 0;
    for (; at + stride <= in.size(); at += stride) {
        encryptTogether<Order, together>(tables, key, in.data() + at, out + at);
    }
    for (; at + Gost28147::blockSize <= in.size(); at += Gost28147::blockSize) {
        encryptTogether<Order, 1>(tables, key, in.data() + at, out + at);
    }
}

class Magma final : public BlockCipher {
public:
    explicit Magma(GostKeyView key) noexcept { Magma::setKey(key); }
    Magma(const Magma&) = delete;
    Magma& operator=(const Magma&) = delete;
    ~Magma() override { OPENSSL_cleanse(key_.data(), sizeof key_); }

    [[nodiscard]] std::size_t blockSize() const noexcept override { return Gost28147::blockSize; }

    void setKey(GostKeyView key) noexcept override {
        for (std::size_t i = 0; i < key_.size(); ++i) {
            key_[i] = big(key.data() + 4 * i);
        }
    }

    void encryptBlocks(ByteView in, std::uint8_t* out) const noexcept override {
        encryptAll<MagmaOrder>(tablesZ, key_, in, out);
    }

private:
    RoundKeys key_{};
};

} // namespace

const Gost28147ParamSet* findGost28147ParamSet(std::string_view oid) noexcept {
    const auto* found = std::ranges::find(sets, oid, &Gost28147ParamSet::oid);
    return found == sets.end() ? nullptr : found;
}

const Gost28147ParamSet& gost28147SetZ() noexcept {
    return sets.back();
}

Gost28147::Gost28147(const Gost28147ParamSet& set, GostKeyView key) noexcept : tables_(set.tables) {
    setKey(key);
}

Gost28147::~Gost28147() {
    OPENSSL_cleanse(key_.data(), sizeof key_);
}

void Gost28147::setKey(GostKeyView key) noexcept {
    for (std::size_t i = 0; i < key_.size(); ++i) {
        key_[i] = little(key.data() + 4 * i);
    }
}

void Gost28147::encrypt(Block& block) const noexcept {
    encryptBlocks(block, block.data());
}

void Gost28147::encryptBlocks(ByteView in, std::uint8_t* out) const noexcept {
    encryptAll<Gost28147Order>(*tables_, key_, in, out);
}

void Gost28147::decrypt(Block& block) const noexcept {
    Halves halves = Gost28147Order::get(block.data());
    decryptHalves(*tables_, key_, halves);
    Gost28147Order::put(block.data(), halves);
}

void Gost28147::macStep(Block& state) const noexcept {
    Halves halves = Gost28147Order::get(state.data());
    ascending(*tables_, key_, std::span(&halves, 1));
    ascending(*tables_, key_, std::span(&halves, 1));
    Gost28147Order::put(state.data(), halves);
}

Gost28147::Mac Gost28147::mac(const Block& iv, ByteView blocks) const noexcept {
    Block state = iv;
    for (std::size_t at = 0; at + blockSize <= blocks.size(); at += blockSize) {
        for (std::size_t i = 0; i < blockSize; ++i) {
            state[i] ^= blocks[at + i];
        }
        macStep(state);
    }
    return {state[0], state[1], state[2], state[3]};
}

void Gost28147::mesh(Block& iv) noexcept {
    std::array<std::uint8_t, gostKeySize> next{};
    for (std::size_t at = 0; at < next.size(); at += blockSize) {
        Block block{};
        std::copy_n(meshingConstant.begin() + static_cast<std::ptrdiff_t>(at), blockSize, block.begin());
        decrypt(block);
        std::ranges::copy(block, next.begin() + static_cast<std::ptrdiff_t>(at));
        OPENSSL_cleanse(block.data(), block.size());
    }
    setKey(next);
    OPENSSL_cleanse(next.data(), next.size());
    encrypt(iv);
}

std::unique_ptr<BlockCipher> makeBlockCipher(Gost2015 cipher, GostKeyView key) {
    if (cipher == Gost2015::Magma) {
        return std::make_unique<Magma>(key);
    }
    return makeKuznyechik(key);
}

} // namespace klunortredi::csp
