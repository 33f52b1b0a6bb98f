#pragma once

/// DER in and out of OpenSSL's objects.

#include "asn1/der.hpp"
#include "core/bytes.hpp"
#include "core/error.hpp"
#include "core/ossl.hpp"
#include "crypto/engine.hpp"

#include <string>

namespace klunortredi::csp::ossl {

/// DER of an OpenSSL object by its i2d function. ApiError(CRYPT_E_BAD_ENCODE) when OpenSSL refuses.
template <class Encode, class Object>
Bytes toDer(Encode i2d, Object* object) {
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
Owner fromDer(Decode d2i, ByteView der) {
    prepareForThreads();
    const ErrorMark mark; // a refused certificate is no error of the host's own OpenSSL use
    const unsigned char* position = der.data();
    Owner object(d2i(nullptr, &position, static_cast<long>(der.size())));
    if (position != der.data() + der.size()) {
        object.reset();
    }
    return object;
}

/// The octets of a string type of OpenSSL. The view lives as long as the string.
inline ByteView octets(const ASN1_STRING* string) noexcept {
    return {ASN1_STRING_get0_data(string), static_cast<std::size_t>(ASN1_STRING_length(string))};
}

/// Dotted form of an object identifier of any length.
inline std::string oidText(const ASN1_OBJECT* oid) {
    if (oid == nullptr || OBJ_length(oid) == 0) {
        fail(capi::CRYPT_E_OID_FORMAT);
    }
    return der::toOid({der::tag::ObjectIdentifier, {OBJ_get0_data(oid), OBJ_length(oid)}, {}});
}

} // namespace klunortredi::csp::ossl
