#pragma once

/// Owners of OpenSSL's objects, keys of each kind, and a writer of DER.

#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <string>
#include <vector>

namespace test_servers {

template <auto Free>
struct Release {
    template <class T>
    void operator()(T* object) const noexcept {
        Free(object);
    }
};
template <class T, auto Free>
using Owned = std::unique_ptr<T, Release<Free>>;
using Key = std::shared_ptr<EVP_PKEY>;
using Certificate = std::shared_ptr<X509>;

enum class KeyKind { ec, rsa, gost2012_256, gost2012_512 };

/// "ec", "rsa", "gost2012_256" or "gost2012_512". Throws std::runtime_error for other words.
KeyKind keyKind(const std::string& word);
/// A new key. GOST keys are of the engine, which is loaded without becoming a default of the process.
Key makeKey(KeyKind kind);
/// The digest that keys of this kind sign.
const EVP_MD* digestOf(KeyKind kind);

/// Throws std::runtime_error with OpenSSL's reason.
void require(bool done, const char* what);

/// DER of an object by its i2d function.
template <class T, class I2d>
std::string toDer(T* object, I2d i2d) {
    unsigned char* der = nullptr;
    const int size = i2d(object, &der);
    require(size >= 0, "i2d");
    std::string out(reinterpret_cast<const char*>(der), static_cast<std::size_t>(size));
    OPENSSL_free(der);
    return out;
}

namespace der {

std::string tlv(int tag, const std::string& content);
std::string sequence(const std::vector<std::string>& elements);
/// SET OF: sorted as DER requires. `tag` 0xA0 and the like for an implicit one.
std::string setOf(std::vector<std::string> elements, int tag = 0x31);
std::string integer(long value);
/// Dotted or known name.
std::string oid(const std::string& text);
std::string octets(const std::string& content);

} // namespace der

} // namespace test_servers
