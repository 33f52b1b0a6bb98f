#pragma once

/// What the structures of a caller who makes a message lead to, checked and copied.

#include "capi/constants.hpp"
#include "capi/types.h"
#include "core/bytes.hpp"
#include "core/error.hpp"
#include "messages/cms_types.hpp"

#include <span>
#include <vector>

namespace klunortredi::csp {

/// ApiError(ERROR_INVALID_PARAMETER) for a null pointer to anything.
template <class T>
std::span<T> givenItems(T* first, DWORD count) {
    if (first == nullptr && count != 0) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return {first, count};
}

/// ApiError: ERROR_INVALID_PARAMETER for an attribute without type or value, CRYPT_E_ASN1_... for a value that is not
/// one of DER.
std::vector<Attribute> givenAttributes(CRYPT_ATTRIBUTE* first, DWORD count);

/// DER IssuerAndSerialNumber (RFC 5652, 10.2.4). `serialNumber`: least significant octet first.
/// ApiError(ERROR_INVALID_PARAMETER) when one of them is empty.
Bytes givenIssuerAndSerial(const CRYPTOAPI_BLOB& issuer, const CRYPTOAPI_BLOB& serialNumber);

} // namespace klunortredi::csp
