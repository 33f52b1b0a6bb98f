#include "crypto/content_cipher.hpp"

#include "core/error.hpp"
#include "crypto/content_cipher_rows.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

using namespace std::string_view_literals;

constexpr std::size_t aes128 = 16;
constexpr std::size_t aes192 = 24;
constexpr std::size_t aes256 = 32;
constexpr std::size_t tripleDes = 24;
constexpr std::size_t gcmTag = 16;

// clang-format off
constexpr std::array rows{
    // R 1323565.1.025-2019
    ContentAlgorithm{"1.2.643.7.1.1.5.2.2"sv, "kuznyechik-ctr-acpkm-omac"sv, 32, 16, Authentication::MacAttribute, true},
    ContentAlgorithm{"1.2.643.7.1.1.5.2.1"sv, "kuznyechik-ctr-acpkm"sv, 32, 0, Authentication::None, true},
    ContentAlgorithm{"1.2.643.7.1.1.5.1.2"sv, "magma-ctr-acpkm-omac"sv, 32, 8, Authentication::MacAttribute, true},
    ContentAlgorithm{"1.2.643.7.1.1.5.1.1"sv, "magma-ctr-acpkm"sv, 32, 0, Authentication::None, true},
    // RFC 4490, 5
    ContentAlgorithm{"1.2.643.2.2.21"sv, "gost28147-89"sv, 32, 0, Authentication::None, true},
    // RFC 5084
    ContentAlgorithm{"2.16.840.1.101.3.4.1.46"sv, "aes-256-gcm"sv, aes256, gcmTag, Authentication::AuthEnveloped, false},
    ContentAlgorithm{"2.16.840.1.101.3.4.1.26"sv, "aes-192-gcm"sv, aes192, gcmTag, Authentication::AuthEnveloped, false},
    ContentAlgorithm{"2.16.840.1.101.3.4.1.6"sv, "aes-128-gcm"sv, aes128, gcmTag, Authentication::AuthEnveloped, false},
    // RFC 3565
    ContentAlgorithm{"2.16.840.1.101.3.4.1.42"sv, "aes-256-cbc"sv, aes256, 0, Authentication::None, false},
    ContentAlgorithm{"2.16.840.1.101.3.4.1.22"sv, "aes-192-cbc"sv, aes192, 0, Authentication::None, false},
    ContentAlgorithm{"2.16.840.1.101.3.4.1.2"sv, "aes-128-cbc"sv, aes128, 0, Authentication::None, false},
    // RFC 3370, 5.1
    ContentAlgorithm{"1.2.840.113549.3.7"sv, "3des-cbc"sv, tripleDes, 0, Authentication::None, false},
};
// clang-format on

void requireKey(const ContentAlgorithm& algorithm, ByteView key) {
    if (key.size() != algorithm.keySize) {
        fail(capi::NTE_BAD_DATA);
    }
}

} // namespace

std::span<const ContentAlgorithm> contentAlgorithms() noexcept {
    return rows;
}

const ContentAlgorithm* findContentAlgorithm(std::string_view oid) noexcept {
    const auto* found = std::ranges::find(rows, oid, &ContentAlgorithm::oid);
    return found == rows.end() ? nullptr : found;
}

const ContentAlgorithm* findContentAlgorithmByName(std::string_view name) noexcept {
    const auto* found = std::ranges::find(rows, name, &ContentAlgorithm::name);
    return found == rows.end() ? nullptr : found;
}

Bytes newContentParameters(const ContentAlgorithm& algorithm, std::string_view gostParamSet) {
    return algorithm.gost ? content::newGostParameters(algorithm, gostParamSet) : content::newEvpParameters(algorithm);
}

std::unique_ptr<ContentEncryptor> contentEncryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key,
                                                   ByteView attributes) {
    requireKey(algorithm, key);
    return algorithm.gost ? content::gostEncryptor(algorithm, parameters, key)
                          : content::evpEncryptor(algorithm, parameters, key, attributes);
}

std::unique_ptr<ContentDecryptor> contentDecryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key,
                                                   ByteView attributes) {
    requireKey(algorithm, key);
    return algorithm.gost ? content::gostDecryptor(algorithm, parameters, key)
                          : content::evpDecryptor(algorithm, parameters, key, attributes);
}

} // namespace klunortredi::csp
