#pragma once

/// RecipientInfo (RFC 5652, 6.2).

#include "core/bytes.hpp"
#include "crypto/key_wrapping.hpp"
#include "messages/cms_types.hpp"
#include "messages/signer_info.hpp"

#include <cstdint>
#include <optional>
#include <vector>

namespace klunortredi::csp {

enum class RecipientKind {
    KeyTransport, ///< KeyTransRecipientInfo
    KeyAgreement, ///< one RecipientEncryptedKey of a KeyAgreeRecipientInfo
    Other         ///< kekri, pwri, ori: counted, and never decrypted
};

/// Somebody who can decrypt the message.
struct Recipient {
    RecipientKind kind = RecipientKind::Other;
    std::int32_t version = 0;
    SignerId id; ///< of the recipient's certificate; all empty for RecipientKind::Other
    /// Nothing for RecipientKind::Other, and for agreement with an originator that is named by a certificate.
    std::optional<WrappedKey> wrapped;
};

/// The recipients of one RecipientInfo with definite lengths: several for a KeyAgreeRecipientInfo with several keys.
/// ApiError(CRYPT_E_ASN1_...) when it is malformed, CRYPT_E_ASN1_LARGE when it has more keys than `mostRecipients` or a
/// field beyond limits.hpp.
std::vector<Recipient> decodeRecipientInfo(ByteView der, std::size_t mostRecipients);

} // namespace klunortredi::csp
