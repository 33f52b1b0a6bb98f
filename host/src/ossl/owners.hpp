#pragma once

/// Ownership and encoding of OpenSSL's objects.

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace orvik::plugin::ssl::internal {

template <auto Free>
struct Release {
    template <class T>
    void operator()(T* object) const noexcept {
        Free(object);
    }
};

/// Owns an OpenSSL object that `Free` releases.
template <class T, auto Free>
using Owned = std::unique_ptr<T, Release<Free>>;

/// Takes back, at its end, what OpenSSL has put into this thread's error queue in the meantime.
class ErrorMark {
public:
    ErrorMark() noexcept { ERR_set_mark(); }
    ErrorMark(const ErrorMark&) = delete;
    ErrorMark& operator=(const ErrorMark&) = delete;
    ~ErrorMark() { ERR_pop_to_mark(); }
};

/// DER of an object by its i2d function. Throws std::runtime_error when OpenSSL cannot encode it.
template <class T, class I2d>
std::string toDer(T* object, I2d i2d) {
    unsigned char* der = nullptr;
    const int size = object == nullptr ? -1 : i2d(object, &der);
    if (size < 0) {
        throw std::runtime_error("OpenSSL cannot encode the value");
    }
    std::string out(reinterpret_cast<const char*>(der), static_cast<std::size_t>(size));
    OPENSSL_free(der);
    return out;
}

/// The object that `der` holds by its d2i function; null when `der` is not exactly one.
template <class Pointer, class D2i>
Pointer fromDer(const std::string& der, D2i d2i) {
    const auto* const begin = reinterpret_cast<const unsigned char*>(der.data());
    const unsigned char* next = begin;
    Pointer object(d2i(nullptr, &next, static_cast<long>(der.size())));
    if (next != begin + der.size()) {
        object.reset();
    }
    return object;
}

} // namespace orvik::plugin::ssl::internal
