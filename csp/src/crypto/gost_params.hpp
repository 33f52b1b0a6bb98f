#pragma once

/// The parameter sets (elliptic curves) of GOST R 34.10 keys: RFC 4357, RFC 7836, RFC 9215.

#include "core/bytes.hpp"
#include "crypto/algorithms.hpp"

#include <span>
#include <string_view>

namespace klunortredi::csp {

struct GostParamSet {
    std::string_view oid;
    DWORD bits;             ///< size of a coordinate
    bool legacy;            ///< also of GOST R 34.10-2001 keys
    bool generate;          ///< false: a test curve, only verified with
    bool digestOid;         ///< RFC 9215 wants the digest's OID beside it in the key's parameters
    const char* engineName; ///< the engine's name of it for key generation; it knows the OID of the others
};

std::span<const GostParamSet> gostParamSets() noexcept;

/// The set of that OID when keys of `key` may use it; null otherwise.
const GostParamSet* findGostParamSet(const KeyAlgorithm& key, std::string_view oid) noexcept;

/// The set that a key's DER parameters name (GostR3410-PublicKeyParameters), when keys of `key` may use it; null
/// when the parameters are malformed or name another.
const GostParamSet* gostParamSetOf(const KeyAlgorithm& key, ByteView parameters);

/// The same whatever digest the parameters name: for a key that only agrees upon another, which has no use for it.
const GostParamSet* gostCurveOf(const KeyAlgorithm& key, ByteView parameters);

/// DER parameters of a key of that set, as RFC 4491 (2001 keys) and RFC 9215 (2012 keys) want them.
Bytes encodeGostParams(const KeyAlgorithm& key, const GostParamSet& set);

} // namespace klunortredi::csp
