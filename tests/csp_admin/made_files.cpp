#include "csp_admin/made_files.hpp"

#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <memory>
#include <stdexcept>

namespace admin_test {

namespace {

template <auto release>
struct Release {
    template <class T>
    void operator()(T* object) const {
        release(object);
    }
};
template <class T, auto release>
using Owned = std::unique_ptr<T, Release<release>>;

void freeBags(STACK_OF(PKCS12_SAFEBAG) * bags) {
    sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
}
void freeSafes(STACK_OF(PKCS7) * safes) {
    sk_PKCS7_pop_free(safes, PKCS7_free);
}

template <class T>
std::string der(const T* object, int (*encode)(const T*, unsigned char**)) {
    unsigned char* octets = nullptr;
    const int size = encode(object, &octets);
    if (size <= 0) {
        throw std::runtime_error("cannot encode");
    }
    std::string result(octets, octets + size);
    OPENSSL_free(octets);
    return result;
}

Owned<BIO, BIO_free> reading(const std::string& text) {
    return Owned<BIO, BIO_free>(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

void identify(PKCS12_SAFEBAG* bag) {
    unsigned char id[] = {'1'};
    if (bag == nullptr || PKCS12_add_localkeyid(bag, id, sizeof id) != 1) {
        throw std::runtime_error("cannot make the bag");
    }
}

} // namespace

namespace {

using Sig = Owned<X509_SIG, X509_SIG_free>;

/// An encrypted key of that scheme; its octets are noise.
Sig noiseUnder(X509_ALGOR* ownedScheme) {
    const Owned<X509_ALGOR, X509_ALGOR_free> scheme(ownedScheme);
    Sig key(X509_SIG_new());
    X509_ALGOR* algorithm = nullptr;
    ASN1_OCTET_STRING* octets = nullptr;
    X509_SIG_getm(key.get(), &algorithm, &octets);
    const std::string noise(64, 'x');
    if (!scheme || X509_ALGOR_copy(algorithm, scheme.get()) != 1 ||
        ASN1_STRING_set(octets, noise.data(), static_cast<int>(noise.size())) != 1) {
        throw std::runtime_error("cannot make the key");
    }
    return key;
}

Sig slowKey(long iterations) {
    return noiseUnder(PKCS5_pbe2_set(EVP_aes_256_cbc(), static_cast<int>(iterations), nullptr, 0));
}

} // namespace

std::string encryptedKeyOf(long iterations) {
    return der<X509_SIG>(slowKey(iterations).get(), i2d_X509_SIG);
}

std::string scryptKeyOf(std::uint64_t cost, std::uint64_t blockSize, std::uint64_t parallelism) {
    // Making the scheme derives nothing; it refuses what needs more memory than OpenSSL takes.
    return der<X509_SIG>(
        noiseUnder(PKCS5_pbe2_set_scrypt(EVP_aes_256_cbc(), nullptr, 0, nullptr, cost, blockSize, parallelism)).get(),
        i2d_X509_SIG);
}

std::string pemOfEncryptedKey(const std::string& der) {
    const Owned<BIO, BIO_free> out(BIO_new(BIO_s_mem()));
    PEM_write_bio(out.get(), PEM_STRING_PKCS8, "",
                  reinterpret_cast<const unsigned char*>(der.data()), // NOLINT(*-reinterpret-cast)
                  static_cast<long>(der.size()));
    char* text = nullptr;
    const long size = BIO_get_mem_data(out.get(), &text);
    return {text, static_cast<std::size_t>(size)};
}

std::string pfxOfSlowKeys(int count, long iterations, const char* password) {
    const Owned<STACK_OF(PKCS12_SAFEBAG), freeBags> bags(sk_PKCS12_SAFEBAG_new_null());
    for (int i = 0; i < count; ++i) {
        PKCS12_SAFEBAG* const bag = PKCS12_SAFEBAG_create0_pkcs8(slowKey(iterations).release());
        if (bag == nullptr || sk_PKCS12_SAFEBAG_push(bags.get(), bag) == 0) {
            throw std::runtime_error("cannot make the bag");
        }
    }
    STACK_OF(PKCS7)* safes = nullptr;
    constexpr int few = 1000;
    PKCS12_add_safe(&safes, bags.get(), password == nullptr ? -1 : NID_aes_256_cbc, few, password);
    const Owned<STACK_OF(PKCS7), freeSafes> ownSafes(safes);
    const Owned<PKCS12, PKCS12_free> file(PKCS12_add_safes(safes, 0));
    if (!file) {
        throw std::runtime_error("cannot make the file");
    }
    return der<PKCS12>(file.get(), i2d_PKCS12);
}

std::string pfxWithSlowMac(long iterations) {
    STACK_OF(PKCS7)* const none = sk_PKCS7_new_null();
    const Owned<STACK_OF(PKCS7), freeSafes> ownSafes(none);
    const Owned<PKCS12, PKCS12_free> file(PKCS12_add_safes(none, 0));
    if (!file || PKCS12_set_mac(file.get(), "x", -1, nullptr, 0, 2, EVP_sha256()) != 1) {
        throw std::runtime_error("cannot make the file");
    }
    const ASN1_INTEGER* written = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &written, file.get());
    ASN1_INTEGER_set(const_cast<ASN1_INTEGER*>(written), iterations); // without deriving that long
    return der<PKCS12>(file.get(), i2d_PKCS12);
}

std::string pfxWithOneId(const std::vector<std::string>& keys, const std::vector<std::string>& certificates,
                         const char* password) {
    constexpr int iterations = 2048;
    STACK_OF(PKCS12_SAFEBAG)* keyBags = nullptr;
    STACK_OF(PKCS12_SAFEBAG)* certificateBags = nullptr;
    for (const std::string& pem : keys) {
        const Owned<EVP_PKEY, EVP_PKEY_free> key(
            PEM_read_bio_PrivateKey(reading(pem).get(), nullptr, nullptr, nullptr));
        identify(PKCS12_add_key(&keyBags, key.get(), 0, iterations, NID_aes_256_cbc, password));
    }
    for (const std::string& pem : certificates) {
        const Owned<X509, X509_free> certificate(PEM_read_bio_X509(reading(pem).get(), nullptr, nullptr, nullptr));
        identify(PKCS12_add_cert(&certificateBags, certificate.get()));
    }
    const Owned<STACK_OF(PKCS12_SAFEBAG), freeBags> ownKeys(keyBags);
    const Owned<STACK_OF(PKCS12_SAFEBAG), freeBags> ownCertificates(certificateBags);
    STACK_OF(PKCS7)* safes = nullptr;
    PKCS12_add_safe(&safes, certificateBags, NID_aes_256_cbc, iterations, password);
    PKCS12_add_safe(&safes, keyBags, -1, 0, nullptr);
    const Owned<STACK_OF(PKCS7), freeSafes> ownSafes(safes);
    const Owned<PKCS12, PKCS12_free> file(PKCS12_add_safes(safes, 0));
    if (!file || PKCS12_set_mac(file.get(), password, -1, nullptr, 0, iterations, EVP_sha256()) != 1) {
        throw std::runtime_error("cannot make the file");
    }
    return der<PKCS12>(file.get(), i2d_PKCS12);
}

} // namespace admin_test
