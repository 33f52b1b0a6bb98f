#pragma once

/// The encoder and decoder of the service: one table from structure type to codec.
///
/// A structure type is a number (as `reinterpret_cast<const char*>(n)`, high bits zero) or the text of an OID. The
/// encoding type may name X509_ASN_ENCODING, PKCS_7_ASN_ENCODING or both; callers mix them freely, and every row
/// answers to either. Errors are ApiError: ERROR_FILE_NOT_FOUND for an unknown structure type or none of the two
/// encodings, CRYPT_E_BAD_ENCODE (or a more telling code) for a value that has no encoding, CRYPT_E_ASN1_... for octets
/// that are not the strict DER of that structure.

#include "capi/types.h"
#include "core/bytes.hpp"

namespace klunortredi::csp {

/// DER of `*info`, the structure that `structType` stands for. ERROR_INVALID_PARAMETER when `info` is null.
Bytes encodeObject(DWORD encodingType, const char* structType, const void* info);

/// Decodes `der` (one value, nothing behind it) into the structure followed by all that its pointers lead to, by the
/// two-call protocol: a null `out` reports the size, a short one fails with ERROR_MORE_DATA. `out` must be 8-byte
/// aligned. `flags` are the CryptoAPI's CRYPT_DECODE_...; none of them changes the result, since everything is copied
/// and signature octets stand as they are encoded.
///
/// X509_CERT_TO_BE_SIGNED takes a whole certificate as well as its to-be-signed part.
void decodeObject(DWORD encodingType, const char* structType, ByteView der, DWORD flags, void* out, DWORD* size);

} // namespace klunortredi::csp
