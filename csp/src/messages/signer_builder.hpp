#pragma once

/// A SignerInfo being made (RFC 5652, 5.3).

#include "capi/signer_fields.h"
#include "capi/types.h"
#include "core/bytes.hpp"
#include "crypto/signature.hpp"
#include "keys/context.hpp"
#include "messages/cms_types.hpp"

#include <memory>
#include <string_view>
#include <vector>

namespace klunortredi::csp {

class SignerBuilder {
public:
    /// Copies all that `info` leads to and takes its provider context. The service adds contentType and messageDigest
    /// to the signed attributes given; when none are given and the content is plain data, the content itself is
    /// signed. ApiError: ERROR_INVALID_PARAMETER for a malformed structure or an attribute that is the service's
    /// matter, CRYPT_E_UNKNOWN_ALGO for an unknown hash, NTE_BAD_ALGID for one that the key does not sign,
    /// NTE_BAD_PUBLIC_KEY when the certificate is not that of the key.
    ///
    /// With a cbSize of CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS, `info` is the head of that structure: the signer may be
    /// named by its subject key identifier, and RSASSA-PSS may be asked for, without parameters (RFC 4056; those
    /// written are the digest itself, MGF1 with it, and a salt of its size). NTE_BAD_ALGID for another signature
    /// algorithm than the key has, and for RSASSA-PSS with SHA-1.
    SignerBuilder(const CMSG_SIGNER_ENCODE_INFO& info, std::string_view contentType);

    [[nodiscard]] const DigestAlgorithm& digest() const noexcept { return *digest_; }
    [[nodiscard]] Bytes digestAlgorithm() const;
    /// Whether the SignerInfo names the signer by its key identifier, which makes it version 3.
    [[nodiscard]] bool byKeyIdentifier() const noexcept { return byKeyIdentifier_; }
    /// The SignerInfo of content with this hash value, signed. Errors of SigningContext::sign.
    [[nodiscard]] Bytes sign(ByteView contentHash) const;
    /// Octets that `sign` will give.
    [[nodiscard]] std::size_t encodedSize() const;

private:
    void readFields(const CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS& fields);
    [[nodiscard]] Bytes signatureAlgorithm() const;
    [[nodiscard]] Bytes signedAttributes(ByteView contentHash) const;
    [[nodiscard]] Bytes encode(ByteView signedAttributes, ByteView signature) const;

    std::shared_ptr<SigningContext> context_;
    DWORD keySpec_;
    const DigestAlgorithm* digest_;
    const KeyAlgorithm* key_ = nullptr;
    std::size_t signatureSize_ = 0;
    Bytes signerIdentifier_;
    bool byKeyIdentifier_ = false;
    RsaScheme scheme_ = RsaScheme::pkcs1;
    bool signsAttributes_;
    std::vector<Bytes> signedAttributes_; ///< without messageDigest
    std::vector<Bytes> unsignedAttributes_;
};

} // namespace klunortredi::csp
