#include "keys/key_file.hpp"

#include "core/error.hpp"
#include "crypto/random.hpp"

#include <openssl/asn1t.h>

#include <array>
#include <memory>
#include <new>

namespace klunortredi::csp {

namespace {

// 16 MiB and about a quarter of a second per guess: dear for whoever copies the file, while a process that signs a
// file of any size still stays below 64 MiB.
constexpr std::uint64_t scryptCost = 1U << 14U;
constexpr std::uint64_t scryptBlockSize = 8;
constexpr std::uint64_t scryptParallelism = 5;
constexpr std::size_t saltSize = 16;
constexpr std::size_t bindingSize = 32;

/// Whether a derivation comes to its end now, tried with the same memory and little work. That the 16 MiB are not there
/// says nothing of a PIN; OpenSSL's errors tell the two apart only together with those that its host has left there.
bool canDerive() {
    const unsigned char salt = 0;
    std::array<unsigned char, 32> key{};
    return EVP_PBE_scrypt("", 0, &salt, sizeof salt, scryptCost, scryptBlockSize, 1, 0, key.data(), key.size()) == 1;
}

using Scheme = std::unique_ptr<PBE2PARAM, ossl::Deleter<PBE2PARAM_free>>;
using Scrypt = std::unique_ptr<SCRYPT_PARAMS, ossl::Deleter<SCRYPT_PARAMS_free>>;

template <class Parameters>
Parameters parametersOf(const X509_ALGOR* algorithm, int wanted, const ASN1_ITEM* item) {
    Parameters parameters(
        OBJ_obj2nid(algorithm->algorithm) == wanted
            ? static_cast<typename Parameters::pointer>(ASN1_TYPE_unpack_sequence(item, algorithm->parameter))
            : nullptr);
    if (!parameters) {
        fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
    return parameters;
}

} // namespace

Bytes encryptKey(EVP_PKEY* key, std::string_view pin, ByteView binding) {
    const ossl::ErrorMark mark;
    const ossl::Pkcs8 plain(EVP_PKEY2PKCS8(key));
    Bytes salt(saltSize);
    fillRandom(salt);
    salt.insert(salt.end(), binding.begin(), binding.end());
    X509_ALGOR* const scheme = PKCS5_pbe2_set_scrypt(EVP_aes_256_cbc(), salt.data(), static_cast<int>(salt.size()),
                                                     nullptr, scryptCost, scryptBlockSize, scryptParallelism);
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

Bytes bindingOf(ByteView encrypted) {
    const ossl::ErrorMark mark;
    const unsigned char* next = encrypted.data();
    const ossl::X509Sig file(d2i_X509_SIG(nullptr, &next, static_cast<long>(encrypted.size())));
    if (!file) {
        fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
    const X509_ALGOR* encryption = nullptr;
    X509_SIG_get0(file.get(), &encryption, nullptr);
    const auto scheme = parametersOf<Scheme>(encryption, NID_pbes2, ASN1_ITEM_rptr(PBE2PARAM));
    const auto scrypt = parametersOf<Scrypt>(scheme->keyfunc, NID_id_scrypt, ASN1_ITEM_rptr(SCRYPT_PARAMS));
    const unsigned char* const salt = ASN1_STRING_get0_data(scrypt->salt);
    const auto size = static_cast<std::size_t>(ASN1_STRING_length(scrypt->salt));
    if (size != saltSize && size != saltSize + bindingSize) {
        fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
    return {salt + saltSize, salt + size};
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
