#include "crypto/kuznyechik.hpp"

#include <openssl/crypto.h>

#include <bit>
#include <cstring>

namespace klunortredi::csp {

namespace {

constexpr std::size_t blockOctets = 16;
using Block = std::array<std::uint8_t, blockOctets>;

/// The substitution pi (RFC 7801, 4.1).
constexpr std::array<std::uint8_t, 256> pi{
    252, 238, 221, 17,  207, 110, 49,  22,  251, 196, 250, 218, 35,  197, 4,   77,  233, 119, 240, 219, 147, 46,
    153, 186, 23,  54,  241, 187, 20,  205, 95,  193, 249, 24,  101, 90,  226, 92,  239, 33,  129, 28,  60,  66,
    139, 1,   142, 79,  5,   132, 2,   174, 227, 106, 143, 160, 6,   11,  237, 152, 127, 212, 211, 31,  235, 52,
    44,  81,  234, 200, 72,  171, 242, 42,  104, 162, 253, 58,  206, 204, 181, 112, 14,  86,  8,   12,  118, 18,
    191, 114, 19,  71,  156, 183, 93,  135, 21,  161, 150, 41,  16,  123, 154, 199, 243, 145, 120, 111, 157, 158,
    178, 177, 50,  117, 25,  61,  255, 53,  138, 126, 109, 84,  198, 128, 195, 189, 13,  87,  223, 245, 36,  169,
    62,  168, 67,  201, 215, 121, 214, 246, 124, 34,  185, 3,   224, 15,  236, 222, 122, 148, 176, 188, 220, 232,
    40,  80,  78,  51,  10,  74,  167, 151, 96,  115, 30,  0,   98,  68,  26,  184, 56,  130, 100, 159, 38,  65,
    173, 69,  70,  146, 39,  94,  85,  47,  140, 163, 165, 125, 105, 213, 149, 59,  7,   88,  179, 64,  134, 172,
    29,  247, 48,  55,  107, 228, 136, 217, 231, 137, 225, 27,  131, 73,  76,  63,  248, 254, 141, 83,  170, 144,
    202, 216, 133, 97,  32,  113, 103, 164, 45,  43,  9,   91,  203, 155, 37,  208, 190, 229, 108, 82,  89,  166,
    116, 210, 230, 244, 180, 192, 209, 102, 175, 194, 57,  75,  99,  182};

/// The coefficients of the linear transformation, that of the most significant octet first (RFC 7801, 4.2).
constexpr std::array<std::uint8_t, blockOctets> coefficients{148, 32,  133, 16, 194, 192, 1,   251,
                                                             1,   192, 194, 16, 133, 32,  148, 1};

/// Product in GF(2^8) modulo x^8 + x^7 + x^6 + x + 1.
constexpr std::uint8_t product(std::uint8_t a, std::uint8_t b) {
    constexpr unsigned polynomial = 0x1C3;
    unsigned result = 0;
    unsigned shifted = a;
    for (unsigned bits = b; bits != 0; bits >>= 1U) {
        result ^= (bits & 1U) != 0 ? shifted : 0U;
        shifted <<= 1U;
        shifted ^= (shifted & 0x100U) != 0 ? polynomial : 0U;
    }
    return static_cast<std::uint8_t>(result);
}

constexpr Block linear(Block block) {
    for (std::size_t step = 0; step < blockOctets; ++step) {
        std::uint8_t sum = 0;
        for (std::size_t i = 0; i < blockOctets; ++i) {
            sum ^= product(block[i], coefficients[i]);
        }
        for (std::size_t i = blockOctets - 1; i > 0; --i) {
            block[i] = block[i - 1];
        }
        block[0] = sum;
    }
    return block;
}

/// A block in a vector register, as two words in the processor's order; only xor is done with it.
using Words = std::uint64_t __attribute__((vector_size(16)));

/// S and L together: for each octet of a block what it contributes.
struct Tables {
    std::array<std::array<Words, 256>, blockOctets> rows;

    Tables() noexcept {
        for (std::size_t position = 0; position < blockOctets; ++position) {
            // L is linear: its value at 1, 2, 4 ... 128 gives all of them.
            std::array<Words, 256> images{};
            for (unsigned bit = 1; bit < images.size(); bit <<= 1U) {
                Block one{};
                one[position] = static_cast<std::uint8_t>(bit);
                const auto image = std::bit_cast<Words>(linear(one));
                for (unsigned lower = 0; lower < bit; ++lower) {
                    images[bit | lower] = images[lower] ^ image;
                }
            }
            for (unsigned value = 0; value < images.size(); ++value) {
                rows[position][value] = images[pi[value]];
            }
        }
    }
};

const Tables& tables() noexcept {
    static const Tables made;
    return made;
}

/// What eight octets of a block contribute, those of one word from table `First` on. A tree of xors, not a chain: the
/// next round waits for it.
template <std::size_t First>
Words contribution(const Tables& table, std::uint64_t word) noexcept {
    const auto at = [&](std::size_t i) { return table.rows[First + i][word >> (8 * i) & 0xFFU]; };
    return ((at(0) ^ at(1)) ^ (at(2) ^ at(3))) ^ ((at(4) ^ at(5)) ^ (at(6) ^ at(7)));
}

/// LSX without X.
Words transformed(const Tables& table, Words state) noexcept {
    static_assert(std::endian::native == std::endian::little, "the octets of a word are taken in this order");
    return contribution<0>(table, state[0]) ^ contribution<8>(table, state[1]);
}

constexpr std::size_t scheduleConstants = 32;

/// C_1 to C_32 (RFC 7801, 4.3).
std::array<Words, scheduleConstants> makeConstants() noexcept {
    std::array<Words, scheduleConstants> constants{};
    for (std::size_t i = 0; i < constants.size(); ++i) {
        Block number{};
        number.back() = static_cast<std::uint8_t>(i + 1);
        constants[i] = std::bit_cast<Words>(linear(number));
    }
    return constants;
}

Words load(const std::uint8_t* at) noexcept {
    Words words{};
    std::memcpy(&words, at, sizeof words);
    return words;
}

class Kuznyechik final : public BlockCipher {
public:
    explicit Kuznyechik(GostKeyView key) noexcept : tables_(tables()) { Kuznyechik::setKey(key); }
    Kuznyechik(const Kuznyechik&) = delete;
    Kuznyechik& operator=(const Kuznyechik&) = delete;
    ~Kuznyechik() override { OPENSSL_cleanse(keys_.data(), sizeof keys_); }

    [[nodiscard]] std::size_t blockSize() const noexcept override { return blockOctets; }

    void setKey(GostKeyView key) noexcept override {
        static const auto constants = makeConstants();
        constexpr std::size_t roundsOfPair = 8;
        keys_[0] = load(key.data());
        keys_[1] = load(key.data() + blockOctets);
        for (std::size_t pair = 2; pair < keys_.size(); pair += 2) {
            Words left = keys_[pair - 2];
            Words right = keys_[pair - 1];
            for (std::size_t i = 0; i < roundsOfPair; ++i) {
                const Words next = transformed(tables_, left ^ constants[(pair / 2 - 1) * roundsOfPair + i]) ^ right;
                right = left;
                left = next;
            }
            keys_[pair] = left;
            keys_[pair + 1] = right;
        }
    }

    void encryptBlocks(ByteView in, std::uint8_t* out) const noexcept override {
        constexpr std::size_t together = 4;
        std::size_t at = 0;
        for (; at + together * blockOctets <= in.size(); at += together * blockOctets) {
            encryptTogether<together>(in.data() + at, out + at);
        }
        for (; at + blockOctets <= in.size(); at += blockOctets) {
            encryptTogether<1>(in.data() + at, out + at);
        }
    }

private:
    /// Blocks that do not depend on each other keep the processor busy while it waits for the tables.
    template <std::size_t Count>
    void encryptTogether(const std::uint8_t* in, std::uint8_t* out) const noexcept {
        std::array<Words, Count> states;
        for (std::size_t i = 0; i < Count; ++i) {
            states[i] = load(in + i * blockOctets) ^ keys_[0];
        }
        for (std::size_t round = 1; round < keys_.size(); ++round) {
            for (Words& state : states) {
                state = transformed(tables_, state) ^ keys_[round];
            }
        }
        std::memcpy(out, states.data(), sizeof states);
    }

    const Tables& tables_;
    std::array<Words, 10> keys_{};
};

} // namespace

std::unique_ptr<BlockCipher> makeKuznyechik(GostKeyView key) {
    return std::make_unique<Kuznyechik>(key);
}

} // namespace klunortredi::csp
