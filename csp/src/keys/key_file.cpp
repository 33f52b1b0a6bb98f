#include "keys/key_file.hpp"

#include "core/error.hpp"

#include <array>
#include <new>

namespace klunortredi::csp {

namespace {

// 16 MiB and about a quarter of a second per guess: dear for whoever copies the file, while a process that signs a
// file of any size still stays below 64 MiB.
constexpr std::uint64_t scryptCost = 1U << 14U;
constexpr std::uint64_t scryptBlockSize = 8;
constexpr std::uint64_t scryptParallelism = 5;
constexpr int saltSize = 16;

/// Whether a derivation comes to its end now, tried with the same memory and little work. That the 16 MiB are not there
/// says nothing of a PIN; OpenSSL's errors tell the two apart only together with those that its host has left there.
bool canDerive() {
    const unsigned char salt = 0;
    std::array<unsigned char, 32> key{};
    return EVP_PBE_scrypt("", 0, &salt, sizeof salt, scryptCost, scryptBlockSize, 1, 0, key.data(), key.size()) == 1;
}

} // namespace

Bytes encryptKey(EVP_PKEY* key, std::string_view pin) {
    const ossl::ErrorMark mark;
    const ossl::Pkcs8 plain(EVP_PKEY2PKCS8(key));
    X509_ALGOR* const scheme = PKCS5_pbe2_set_scrypt(EVP_aes_256_cbc(), nullptr, saltSize, nullptr, scryptCost,
                                                     scryptBlockSize, scryptParallelism);
    if (!plain || scheme == nullptr) {
        X509_ALGOR_free(scheme);
        fail(capi::NTE_FAIL);
    }
    const ossl::X509Sig encrypted(PKCS8_set0_pbe(pin.data(), static_cast<int>(pin.size()), plain.get(), scheme));
    if (!encrypted) {
        X509_ALGOR_free(scheme);
        fail(capi::NTE_FAIL);
    }
    unsigned char* der = nullptr;
    const int size = i2d_X509_SIG(encrypted.get(), &der);
    if (size <= 0) {
        fail(capi::NTE_FAIL);
    }
    Bytes file(der, der + size);
    OPENSSL_free(der);
    return file;
}

ossl::Pkey decryptKey(ByteView encrypted, std::string_view pin) {
    const ossl::ErrorMark mark;
    const unsigned char* next = encrypted.data();
    const ossl::X509Sig container(d2i_X509_SIG(nullptr, &next, static_cast<long>(encrypted.size())));
    if (!container || next != encrypted.data() + encrypted.size()) {
        fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
    const ossl::Pkcs8 plain(PKCS8_decrypt(container.get(), pin.data(), static_cast<int>(pin.size())));
    ossl::Pkey key(plain ? EVP_PKCS82PKEY(plain.get()) : nullptr);
    if (!key && !canDerive()) {
        throw std::bad_alloc();
    }
    return key;
}

} // namespace klunortredi::csp
