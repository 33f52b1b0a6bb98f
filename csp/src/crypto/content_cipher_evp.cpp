#include "asn1/der.hpp"
#include "core/error.hpp"
#include "core/ossl.hpp"
#include "crypto/content_cipher_rows.hpp"
#include "crypto/random.hpp"

#include <algorithm>
#include <array>
#include <limits>

namespace klunortredi::csp::content {

namespace {

using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, ossl::Deleter<EVP_CIPHER_CTX_free>>;
using Cipher = std::unique_ptr<EVP_CIPHER, ossl::Deleter<EVP_CIPHER_free>>;

/// Octets of the nonce that is written (RFC 5084, 3.2: 12 is recommended).
constexpr std::size_t gcmNonce = 12;
/// A nonce longer than this is not in use; the field comes from a stranger.
constexpr std::size_t longestNonce = 64;
/// Octets of a GCM tag when the parameters do not say (RFC 5084, 3.2), and the sizes that are defined.
constexpr std::size_t gcmTagDefault = 12;
constexpr std::size_t gcmTagLeast = 12;
constexpr std::size_t gcmTagMost = 16;

const char* evpName(const ContentAlgorithm& algorithm) {
    struct Row {
        std::string_view name;
        const char* evp;
    };
    static constexpr std::array rows{
        Row{"aes-256-gcm", "AES-256-GCM"}, Row{"aes-192-gcm", "AES-192-GCM"}, Row{"aes-128-gcm", "AES-128-GCM"},
        Row{"aes-256-cbc", "AES-256-CBC"}, Row{"aes-192-cbc", "AES-192-CBC"}, Row{"aes-128-cbc", "AES-128-CBC"},
        Row{"3des-cbc", "DES-EDE3-CBC"},
    };
    const auto* const row = std::ranges::find(rows, algorithm.name, &Row::name);
    if (row == rows.end()) {
        fail(capi::NTE_BAD_ALGID);
    }
    return row->evp;
}

struct Parameters {
    ByteView iv;
    std::size_t tagSize;
};

/// CBC: the initialisation vector. GCM: GCMParameters (RFC 5084, 3.2).
Parameters decode(const ContentAlgorithm& algorithm, ByteView parameters) {
    try {
        if (algorithm.authentication == Authentication::None) {
            return {der::readOnly(parameters, der::tag::OctetString).content, 0};
        }
        der::Reader fields(der::readOnly(parameters, der::tag::Sequence).content);
        const ByteView nonce = fields.read(der::tag::OctetString).content;
        const std::size_t tagSize = fields.empty() ? gcmTagDefault : der::toUint32(fields.read(der::tag::Integer));
        fields.finish();
        if (nonce.empty() || nonce.size() > longestNonce || tagSize < gcmTagLeast || tagSize > gcmTagMost) {
            fail(capi::CRYPT_E_BAD_ENCODE);
        }
        return {nonce, tagSize};
    } catch (const ApiError&) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
}

/// An OpenSSL cipher that is set up, one direction.
class Evp {
public:
    Evp(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key, ByteView attributes, bool encrypt)
        : context_(EVP_CIPHER_CTX_new()) {
        const ossl::ErrorMark mark;
        const Parameters fields = decode(algorithm, parameters);
        tagSize_ = fields.tagSize;
        const Cipher cipher(EVP_CIPHER_fetch(nullptr, evpName(algorithm), nullptr));
        if (!context_ || !cipher) {
            fail(capi::NTE_BAD_ALGID);
        }
        const bool gcm = algorithm.authentication == Authentication::AuthEnveloped;
        const int direction = encrypt ? 1 : 0;
        if (!gcm && fields.iv.size() != static_cast<std::size_t>(EVP_CIPHER_get_iv_length(cipher.get()))) {
            fail(capi::CRYPT_E_BAD_ENCODE);
        }
        if (EVP_CipherInit_ex2(context_.get(), cipher.get(), nullptr, nullptr, direction, nullptr) != 1 ||
            (gcm && EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_SET_IVLEN, static_cast<int>(fields.iv.size()),
                                        nullptr) != 1) ||
            EVP_CipherInit_ex2(context_.get(), nullptr, key.data(), fields.iv.data(), direction, nullptr) != 1) {
            fail(capi::NTE_FAIL);
        }
        if (!attributes.empty()) {
            authenticate(attributes);
        }
    }

    void update(ByteView in, Bytes& out) {
        constexpr std::size_t largestPart = 1U << 30U;
        const ossl::ErrorMark mark;
        while (!in.empty()) {
            const ByteView part = in.first(std::min(in.size(), largestPart));
            in = in.subspan(part.size());
            const std::size_t before = out.size();
            out.resize(before + part.size() + EVP_MAX_BLOCK_LENGTH);
            int size = 0;
            // GCM refuses more than 2^36 - 32 octets here.
            if (EVP_CipherUpdate(context_.get(), out.data() + before, &size, part.data(),
                                 static_cast<int>(part.size())) != 1) {
                fail(capi::NTE_BAD_DATA);
            }
            out.resize(before + static_cast<std::size_t>(size));
        }
    }

    void finish(Bytes& out) {
        const ossl::ErrorMark mark;
        const std::size_t before = out.size();
        out.resize(before + EVP_MAX_BLOCK_LENGTH);
        int size = 0;
        const bool good = EVP_CipherFinal_ex(context_.get(), out.data() + before, &size) == 1;
        out.resize(good ? before + static_cast<std::size_t>(size) : before);
        if (!good) {
            fail(capi::NTE_BAD_DATA);
        }
    }

    void expectTag(ByteView tag) {
        const ossl::ErrorMark mark;
        Bytes copied(tag.begin(), tag.end());
        if (tag.size() != tagSize_ ||
            (tagSize_ != 0 && EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_SET_TAG,
                                                  static_cast<int>(copied.size()), copied.data()) != 1)) {
            fail(capi::NTE_BAD_DATA);
        }
    }

    [[nodiscard]] Bytes tag() const {
        Bytes tag(tagSize_);
        if (tagSize_ != 0 &&
            EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_GET_TAG, static_cast<int>(tag.size()), tag.data()) != 1) {
            fail(capi::NTE_FAIL);
        }
        return tag;
    }

private:
    void authenticate(ByteView attributes) {
        int size = 0;
        if (attributes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) ||
            EVP_CipherUpdate(context_.get(), nullptr, &size, attributes.data(), static_cast<int>(attributes.size())) !=
                1) {
            fail(capi::NTE_FAIL);
        }
    }

    CipherCtx context_;
    std::size_t tagSize_ = 0;
};

class EvpEncryptor final : public ContentEncryptor {
public:
    EvpEncryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key, ByteView attributes)
        : evp_(algorithm, parameters, key, attributes, true) {}

    void update(ByteView plaintext, Bytes& out) override { evp_.update(plaintext, out); }
    void finish(Bytes& out) override { evp_.finish(out); }
    [[nodiscard]] Bytes tag() const override { return evp_.tag(); }

private:
    Evp evp_;
};

class EvpDecryptor final : public ContentDecryptor {
public:
    EvpDecryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key, ByteView attributes)
        : evp_(algorithm, parameters, key, attributes, false) {}

    void update(ByteView ciphertext, Bytes& out) override { evp_.update(ciphertext, out); }
    void finish(ByteView tag, Bytes& out) override {
        evp_.expectTag(tag);
        evp_.finish(out);
    }

private:
    Evp evp_;
};

} // namespace

Bytes newEvpParameters(const ContentAlgorithm& algorithm) {
    if (algorithm.authentication == Authentication::AuthEnveloped) {
        Bytes nonce(gcmNonce);
        fillRandom(nonce);
        return der::sequence({der::octetString(nonce), der::integer(static_cast<std::int64_t>(algorithm.tagSize))});
    }
    const Cipher cipher(EVP_CIPHER_fetch(nullptr, evpName(algorithm), nullptr));
    if (!cipher) {
        fail(capi::NTE_BAD_ALGID);
    }
    Bytes iv(static_cast<std::size_t>(EVP_CIPHER_get_iv_length(cipher.get())));
    fillRandom(iv);
    return der::octetString(iv);
}

std::unique_ptr<ContentEncryptor> evpEncryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key,
                                               ByteView attributes) {
    return std::make_unique<EvpEncryptor>(algorithm, parameters, key, attributes);
}

std::unique_ptr<ContentDecryptor> evpDecryptor(const ContentAlgorithm& algorithm, ByteView parameters, ByteView key,
                                               ByteView attributes) {
    return std::make_unique<EvpDecryptor>(algorithm, parameters, key, attributes);
}

} // namespace klunortredi::csp::content
