#pragma once

/// The recipients of an enveloped message being made (RFC 5652, 6.2).

#include "capi/types.h"
#include "core/bytes.hpp"
#include "crypto/content_cipher.hpp"

#include <vector>

namespace klunortredi::csp {

/// RecipientInfo elements.
struct RecipientInfos {
    std::vector<Bytes> elements; ///< DER of each
    bool allVersion0 = true;     ///< each is a KeyTransRecipientInfo named by issuer and serial number
};

/// Wraps `contentKey`, the key of `content`, for each recipient that `info` describes.
///
/// Key transport of RSA keys: RSAES-PKCS1-v1_5, or RSAES-OAEP when the recipient's KeyEncryptionAlgorithm is
/// id-RSAES-OAEP. GOST keys: the wrap that belongs to the content cipher (KExp15 for Magma and Kuznyechik, CryptoPro
/// key wrap for GOST 28147-89). Key agreement (GOST keys): as KeyWrapAlgorithm says, with an ephemeral key for each
/// recipient.
///
/// Throws ApiError: ERROR_INVALID_PARAMETER for what the structures may not hold (no recipient, too many, null
/// pointers, a static key, a UKM: the service makes its own), NTE_BAD_ALGID for GOST keys with another content cipher,
/// the reverse, and a wrap that is unknown or not one of the key's kind, CRYPT_E_OID_FORMAT, NTE_BAD_PUBLIC_KEY.
RecipientInfos recipientInfos(const CMSG_ENVELOPED_ENCODE_INFO& info, const ContentAlgorithm& content,
                              ByteView contentKey);

} // namespace klunortredi::csp
