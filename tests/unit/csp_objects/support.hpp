#pragma once

/// What the tests of the object codec share.

#include "capi/constants.hpp"
#include "core/bytes.hpp"
#include "core/error.hpp"
#include "objects/codec.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::csp::test {

/// Octets of hexadecimal text; blanks do not count.
inline Bytes hex(std::string_view text) {
    Bytes out;
    std::string digits;
    for (const char c : text) {
        if (c != ' ' && c != '\n') {
            digits += c;
        }
        if (digits.size() == 2) {
            out.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
            digits.clear();
        }
    }
    return out;
}

inline const char* type(DWORD number) {
    return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(number));
}
inline const char* type(const char* oid) {
    return oid;
}

/// A blob over octets that outlive it.
inline CRYPTOAPI_BLOB blob(Bytes& bytes) {
    return {static_cast<DWORD>(bytes.size()), bytes.data()};
}

template <class Blob>
Bytes bytes(const Blob& value) {
    return value.pbData == nullptr ? Bytes{} : Bytes(value.pbData, value.pbData + value.cbData);
}

/// A decoded structure in a block of exactly the size that the codec asked for.
template <class T>
class Decoded {
public:
    Decoded(const char* structType, ByteView der) {
        DWORD size = 0;
        decodeObject(capi::X509_AND_PKCS_7, structType, der, 0, nullptr, &size);
        block_ = std::make_unique<std::byte[]>(size);
        decodeObject(capi::X509_AND_PKCS_7, structType, der, 0, block_.get(), &size);
    }
    const T& operator*() const { return *reinterpret_cast<const T*>(block_.get()); }
    const T* operator->() const { return &**this; }

private:
    std::unique_ptr<std::byte[]> block_;
};

template <class T, class Type>
Decoded<T> decode(Type structType, ByteView der) {
    return Decoded<T>(type(structType), der);
}

template <class Type, class T>
Bytes encode(Type structType, const T& info) {
    return encodeObject(capi::X509_AND_PKCS_7, type(structType), &info);
}

/// The code with which `action` fails; ERROR_SUCCESS when it does not.
template <class Action>
DWORD failureOf(Action&& action) {
    try {
        action();
    } catch (const ApiError& error) {
        return error.code();
    }
    return capi::ERROR_SUCCESS;
}

/// Whether OpenSSL reads `der` as that structure, to the last octet, and would write the same.
template <auto D2i, auto I2d, auto Free>
bool opensslAgrees(ByteView der) {
    const unsigned char* at = der.data();
    auto* const object = D2i(nullptr, &at, static_cast<long>(der.size()));
    if (object == nullptr) {
        return false;
    }
    const int size = I2d(object, nullptr);
    Bytes again(size < 0 ? 0 : static_cast<std::size_t>(size));
    unsigned char* to = again.data();
    I2d(object, &to);
    Free(object);
    return at == der.data() + der.size() && again == Bytes(der.begin(), der.end());
}

} // namespace klunortredi::csp::test
