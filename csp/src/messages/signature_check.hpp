#pragma once

/// Whether a signer's signature holds (RFC 5652, 5.4 and 5.6).

#include "core/bytes.hpp"
#include "messages/content_hasher.hpp"
#include "messages/signer_info.hpp"

#include <string_view>

namespace klunortredi::csp {

/// Returns when `signer` has signed content of `contentType` (dotted eContentType) with the hash values of `content`,
/// and the signature is that of the key in `subjectPublicKeyInfo`. Whether that key is the signer's is the caller's
/// matter. Throws ApiError:
///
/// CRYPT_E_UNKNOWN_ALGO          digest unknown or not listed by the message, signature algorithm or kind of key
/// unknown CRYPT_E_AUTH_ATTR_MISSING     a signed attribute that must stand there once with one value does not; or
/// there are no
///                               signed attributes, and the content could be somebody else's (see AttributeShape)
/// CRYPT_E_UNEXPECTED_MSG_TYPE   the contentType attribute names another type
/// CRYPT_E_HASH_VALUE            the messageDigest attribute is not the content's hash
/// CRYPT_E_BAD_ENCODE            the signature value is not DER where it has to be (ECDSA)
/// NTE_BAD_SIGNATURE             the signature value is not the key's, or the algorithms named do not fit together
/// NTE_BAD_PUBLIC_KEY            no usable key
/// NTE_BAD_ALGID, NTE_BAD_KEY    broken digest, broken key size (see broken_algorithms.hpp)
void checkSignature(const SignerInfo& signer, std::string_view contentType, const ContentHasher& content,
                    ByteView subjectPublicKeyInfo);

/// The same for a counter-signature (RFC 5652, 11.4): `parentValue` is the signature value that it covers. It must not
/// have a contentType attribute (CRYPT_E_UNEXPECTED_MSG_TYPE).
void checkCounterSignature(const SignerInfo& counter, ByteView parentValue, ByteView subjectPublicKeyInfo);

} // namespace klunortredi::csp
