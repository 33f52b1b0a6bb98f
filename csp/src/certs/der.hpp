#pragma once

/// Small pieces of DER around OpenSSL's own codecs.

#include "capi/types.h"
#include "core/bytes.hpp"
#include "core/error.hpp"
#include "crypto/ossl.hpp"

#include <openssl/err.h>

#include <initializer_list>
#include <string>

namespace klunortredi::csp::der {

/// Drops what OpenSSL calls of this scope leave on the thread's error queue: a refused certificate must not show up as
/// an error of the host's own OpenSSL use.
class QuietErrors {
public:
    QuietErrors() noexcept { ERR_set_mark(); }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;
    ~QuietErrors() { ERR_pop_to_mark(); }
};

/// DER of an OpenSSL object by its i2d function. ApiError(CRYPT_E_BAD_ENCODE) when OpenSSL refuses.
template <class Encode, class Object>
Bytes encode(Encode i2d, Object* object) {
    const int size = i2d(object, nullptr);
    if (size < 0) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    Bytes der(static_cast<std::size_t>(size));
    unsigned char* out = der.data();
    if (i2d(object, &out) != size) {
        fail(capi::CRYPT_E_BAD_ENCODE);
    }
    return der;
}

/// The OpenSSL object of a DER encoding by its d2i function; null when malformed or when octets follow it.
template <class Owner, class Decode>
Owner decode(Decode d2i, ByteView der) {
    const QuietErrors quiet;
    const unsigned char* position = der.data();
    Owner object(d2i(nullptr, &position, static_cast<long>(der.size())));
    if (position != der.data() + der.size()) {
        object.reset();
    }
    return object;
}

/// Dotted form of an object identifier of any length.
std::string oidText(const ASN1_OBJECT* oid);

/// SEQUENCE of members that are DER already.
Bytes sequence(std::initializer_list<ByteView> members);

/// BIT STRING of whole octets, the last `unusedBits` bits of them unused.
Bytes bitString(ByteView octets, DWORD unusedBits = 0);

/// AlgorithmIdentifier (RFC 5280, 4.1.1.2). Throws ApiError(CRYPT_E_OID_FORMAT) for a missing or malformed OID,
/// CRYPT_E_BAD_ENCODE for parameters that are not one DER value.
Bytes algorithmIdentifier(const CRYPT_ALGORITHM_IDENTIFIER& algorithm);

/// The octets of a blob; a null pointer counts as empty.
template <class Blob>
ByteView view(const Blob& blob) noexcept {
    return blob.pbData == nullptr ? ByteView{} : ByteView{blob.pbData, blob.cbData};
}

} // namespace klunortredi::csp::der
