#pragma once

/// Signature algorithms that the service only verifies: RSASSA-PSS (RFC 4056) and ECDSA (RFC 5753, 2.1).

#include "core/bytes.hpp"
#include "crypto/algorithms.hpp"
#include "messages/cms_types.hpp"

#include <optional>
#include <string_view>

namespace klunortredi::csp {

/// Whether `signature` is the key's signature of `hash` (a value of `digest`); nothing when neither the key nor the
/// signature algorithm is one of these. False also when the algorithms named do not fit together.
/// ApiError: NTE_BAD_PUBLIC_KEY for a malformed key, NTE_BAD_KEY for a broken one, CRYPT_E_BAD_ENCODE for an ECDSA
/// value that is not DER.
std::optional<bool> verifyOtherSignature(std::string_view keyOid, ByteView subjectPublicKeyInfo,
                                         const AlgorithmId& algorithm, const DigestAlgorithm& digest, ByteView hash,
                                         ByteView signature);

} // namespace klunortredi::csp
