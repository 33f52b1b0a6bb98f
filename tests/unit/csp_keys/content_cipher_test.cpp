// The engine interface is deprecated in OpenSSL 3; it is the judge here.
#define OPENSSL_SUPPRESS_DEPRECATED

// Content ciphers: both directions, any piece size, past every section and meshing interval; OpenSSL's engine as judge.
#include "core/error.hpp"
#include "core/ossl.hpp"
#include "crypto/content_cipher.hpp"
#include "crypto/engine.hpp"

#include <openssl/asn1t.h>
#include <openssl/engine.h>
#include <openssl/objects.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

namespace {

using namespace klunortredi::csp;

Bytes pattern(std::size_t size) {
    Bytes octets(size);
    for (std::size_t i = 0; i < size; ++i) {
        octets[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    }
    return octets;
}

struct Sealed {
    Bytes parameters;
    Bytes ciphertext;
    Bytes tag;
};

Sealed seal(const ContentAlgorithm& algorithm, ByteView key, ByteView plaintext, std::size_t piece,
            std::string_view paramSet = {}) {
    Sealed sealed{newContentParameters(algorithm, paramSet), {}, {}};
    const auto cipher = contentEncryptor(algorithm, sealed.parameters, key);
    for (std::size_t at = 0; at < plaintext.size(); at += piece) {
        cipher->update(plaintext.subspan(at, std::min(piece, plaintext.size() - at)), sealed.ciphertext);
    }
    cipher->finish(sealed.ciphertext);
    sealed.tag = cipher->tag();
    return sealed;
}

Bytes open(const ContentAlgorithm& algorithm, ByteView key, const Sealed& sealed, std::size_t piece) {
    const auto cipher = contentDecryptor(algorithm, sealed.parameters, key);
    Bytes plaintext;
    const ByteView ciphertext = sealed.ciphertext;
    for (std::size_t at = 0; at < ciphertext.size(); at += piece) {
        cipher->update(ciphertext.subspan(at, std::min(piece, ciphertext.size() - at)), plaintext);
    }
    cipher->finish(sealed.tag, plaintext);
    return plaintext;
}

std::optional<DWORD> openingError(const ContentAlgorithm& algorithm, ByteView key, const Sealed& sealed) {
    try {
        open(algorithm, key, sealed, 4096);
    } catch (const ApiError& error) {
        return error.code();
    }
    return std::nullopt;
}

TEST(ContentCipher, EveryAlgorithmOpensWhatItSealedInPiecesOfAnySize) {
    for (const ContentAlgorithm& algorithm : contentAlgorithms()) {
        const Bytes key = pattern(algorithm.keySize);
        for (const std::size_t size :
             std::initializer_list<std::size_t>{0, 1, 7, 8, 15, 16, 17, 1023, 1024, 1025, 4096, 4097, 20000, 600000}) {
            const Bytes plaintext = pattern(size);
            const Sealed sealed = seal(algorithm, key, plaintext, 37);
            EXPECT_EQ(sealed.tag.size(), algorithm.tagSize);
            EXPECT_EQ(open(algorithm, key, sealed, 41), plaintext) << algorithm.name << ' ' << size;
            EXPECT_EQ(open(algorithm, key, sealed, 100000), plaintext) << algorithm.name << ' ' << size;
        }
        EXPECT_EQ(findContentAlgorithm(algorithm.oid), &algorithm);
        EXPECT_EQ(findContentAlgorithmByName(algorithm.name), &algorithm);
    }
}

TEST(ContentCipher, AuthenticatedFormsRefuseAChangedOctetAnywhere) {
    for (const ContentAlgorithm& algorithm : contentAlgorithms()) {
        if (algorithm.authentication == Authentication::None) {
            continue;
        }
        const Bytes key = pattern(algorithm.keySize);
        const Sealed good = seal(algorithm, key, pattern(100), 100);
        for (std::size_t i = 0; i < good.ciphertext.size(); ++i) {
            Sealed changed = good;
            changed.ciphertext[i] ^= 0x10;
            EXPECT_EQ(openingError(algorithm, key, changed), capi::NTE_BAD_DATA) << algorithm.name << ' ' << i;
        }
        for (std::size_t i = 0; i < good.tag.size(); ++i) {
            Sealed changed = good;
            changed.tag[i] ^= 1;
            EXPECT_EQ(openingError(algorithm, key, changed), capi::NTE_BAD_DATA) << algorithm.name << ' ' << i;
        }
        Sealed shortened = good;
        shortened.tag.pop_back();
        EXPECT_EQ(openingError(algorithm, key, shortened), capi::NTE_BAD_DATA) << algorithm.name;
        shortened.tag.clear();
        EXPECT_EQ(openingError(algorithm, key, shortened), capi::NTE_BAD_DATA) << algorithm.name;
    }
}

TEST(ContentCipher, ParametersOfAnotherShapeAreRefused) {
    for (const ContentAlgorithm& algorithm : contentAlgorithms()) {
        const Bytes key = pattern(algorithm.keySize);
        const Bytes good = newContentParameters(algorithm);
        for (std::size_t size = 0; size < good.size(); ++size) {
            EXPECT_THROW(contentDecryptor(algorithm, ByteView(good).first(size), key), ApiError)
                << algorithm.name << ' ' << size;
        }
        EXPECT_THROW(contentDecryptor(algorithm, good, ByteView(key).first(key.size() - 1)), ApiError);
    }
    EXPECT_THROW(newContentParameters(*findContentAlgorithmByName("gost28147-89"), "1.2.643.2.2.31.0"), ApiError);
}

/// What the GOST engine's cipher makes of `input`; nothing when the engine is not installed or refuses the parameters.
std::optional<Bytes> engineCipher(const char* name, const Bytes& parameters, ByteView key, ByteView input,
                                  bool encrypt) {
    const EVP_CIPHER* const cipher = ENGINE_get_cipher(gostEngine(), OBJ_sn2nid(name));
    const std::unique_ptr<EVP_CIPHER_CTX, ossl::Deleter<EVP_CIPHER_CTX_free>> context(EVP_CIPHER_CTX_new());
    const unsigned char* next = parameters.data();
    const std::unique_ptr<ASN1_TYPE, ossl::Deleter<ASN1_TYPE_free>> type(
        d2i_ASN1_TYPE(nullptr, &next, static_cast<long>(parameters.size())));
    if (cipher == nullptr || !type ||
        EVP_CipherInit_ex(context.get(), cipher, gostEngine(), nullptr, nullptr, encrypt ? 1 : 0) != 1 ||
        EVP_CIPHER_asn1_to_param(context.get(), type.get()) <= 0 ||
        EVP_CipherInit_ex(context.get(), nullptr, nullptr, key.data(), nullptr, encrypt ? 1 : 0) != 1) {
        return std::nullopt;
    }
    Bytes out(input.size() + 32);
    int size = 0;
    if (EVP_CipherUpdate(context.get(), out.data(), &size, input.data(), static_cast<int>(input.size())) != 1) {
        return std::nullopt;
    }
    out.resize(static_cast<std::size_t>(size));
    return out;
}

TEST(ContentCipher, Gost28147EqualsTheEngineForEveryParameterSetWithMeshing) {
    const ContentAlgorithm& algorithm = *findContentAlgorithmByName("gost28147-89");
    const Bytes key = pattern(32);
    const Bytes plaintext = pattern(5000);
    for (const char* set :
         {"1.2.643.2.2.31.1", "1.2.643.2.2.31.2", "1.2.643.2.2.31.3", "1.2.643.2.2.31.4", "1.2.643.7.1.2.5.1.1"}) {
        const Sealed sealed = seal(algorithm, key, plaintext, 61, set);
        EXPECT_EQ(engineCipher("gost89", sealed.parameters, key, plaintext, true), sealed.ciphertext) << set;
    }
}

} // namespace
