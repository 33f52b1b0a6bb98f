#include "pfx_writer.hpp"

#include "core/error.hpp"
#include "crypto/signature.hpp"

namespace klunortredi::admin {

namespace {

namespace ossl = csp::ossl;
using csp::Bytes;
using Handle = std::unique_ptr<PKCS12, ossl::Deleter<PKCS12_free>>;

/// How a kind of key is protected. OpenSSL derives the key of a cipher with the hash that belongs to it.
struct Protection {
    int cipher;
    const char* digest;
    int iterations; ///< of each of the three derivations, dear for whoever guesses, a moment for the owner
};
constexpr Protection gostProtection{NID_id_Gost28147_89, SN_id_GostR3411_2012_512, 100'000};
constexpr Protection rsaProtection{NID_aes_256_cbc, SN_sha256, 600'000};

constexpr int macSaltSize = 16;

ossl::X509Ptr decode(const Bytes& der) {
    const unsigned char* next = der.data();
    ossl::X509Ptr certificate(d2i_X509(nullptr, &next, static_cast<long>(der.size())));
    if (!certificate) {
        csp::fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
    return certificate;
}

} // namespace

Bytes writePfx(const PfxEntry& entry, const csp::Secret& password) {
    const ossl::ErrorMark mark;
    const Protection& protection = csp::keyAlgorithm(entry.key).gost ? gostProtection : rsaProtection;
    const ossl::X509Ptr certificate = entry.certificate ? decode(*entry.certificate) : nullptr;
    // OpenSSL takes the password as a string with its terminating zero here.
    csp::Secret text = password;
    text.push_back('\0');
    const Handle file(PKCS12_create(text.data(), entry.friendlyName.c_str(), entry.key, certificate.get(), nullptr,
                                    protection.cipher, protection.cipher, protection.iterations, -1, 0));
    if (!file || PKCS12_set_mac(file.get(), text.data(), -1, nullptr, macSaltSize, protection.iterations,
                                EVP_get_digestbyname(protection.digest)) != 1) {
        csp::fail(capi::NTE_FAIL);
    }
    unsigned char* encoded = nullptr;
    const int size = i2d_PKCS12(file.get(), &encoded);
    if (size <= 0) {
        csp::fail(capi::NTE_FAIL);
    }
    Bytes der(encoded, encoded + size);
    OPENSSL_free(encoded);
    return der;
}

} // namespace klunortredi::admin
