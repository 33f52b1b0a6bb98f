#pragma once

/// The algorithms of the service: one row each, with the names under which the CryptoAPI, X.509/CMS and OpenSSL know
/// it.

#include "capi/types.h"

#include <span>
#include <string_view>

namespace klunortredi::csp {

/// A hash function.
struct DigestAlgorithm {
    ALG_ID id;                 ///< CALG_...; CALG_OID_INFO_PARAMETERS when it has none
    std::string_view oid;      ///< dotted
    const char* name;          ///< OpenSSL's name of it
    std::size_t size;          ///< octets of the value
    bool gost;                 ///< comes from the GOST engine
    std::wstring_view cngName; ///< empty when none
};

/// A kind of key pair.
struct KeyAlgorithm {
    ALG_ID signId;             ///< ALG_ID of an AT_SIGNATURE key
    ALG_ID exchangeId;         ///< ALG_ID of an AT_KEYEXCHANGE key
    std::string_view oid;      ///< public-key algorithm in a SubjectPublicKeyInfo
    std::string_view agreeOid; ///< the agreement OID under which the same key also appears; empty when none
    int pkeyType;              ///< OpenSSL's NID of it
    DWORD defaultBits;
    bool gost;
    std::wstring_view cngName; ///< empty when none
};

/// What a signature's algorithm field may say: a key algorithm, with a fixed digest or with any (digestOid empty).
struct SignatureAlgorithm {
    std::string_view oid;
    std::string_view keyOid;
    std::string_view digestOid;
};

std::span<const DigestAlgorithm> digestAlgorithms() noexcept;
std::span<const KeyAlgorithm> keyAlgorithms() noexcept;
std::span<const SignatureAlgorithm> signatureAlgorithms() noexcept;

/// Null when unknown.
const DigestAlgorithm* findDigest(ALG_ID id) noexcept;
const DigestAlgorithm* findDigest(std::string_view oid) noexcept;
/// By ALG_ID of either key spec; null when unknown.
const KeyAlgorithm* findKey(ALG_ID id) noexcept;
/// By either OID; null when unknown.
const KeyAlgorithm* findKey(std::string_view oid) noexcept;
const SignatureAlgorithm* findSignature(std::string_view oid) noexcept;
/// The digest with which keys of this algorithm sign: its own for GOST, SHA-256 for RSA.
const DigestAlgorithm& defaultDigest(const KeyAlgorithm& key) noexcept;
/// OID of `key` signing a `digest` value (RFC 9215, RFC 4055, RFC 8017); empty when the pair has none.
std::string_view signatureOid(const KeyAlgorithm& key, const DigestAlgorithm& digest) noexcept;

} // namespace klunortredi::csp
