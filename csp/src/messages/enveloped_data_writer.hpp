#pragma once

/// The octets of an EnvelopedData (RFC 5652, 6.1) or AuthEnvelopedData (RFC 5083, 2.1) around its ciphertext.

#include "core/bytes.hpp"
#include "crypto/content_cipher.hpp"
#include "messages/recipient_builder.hpp"

#include <cstdint>
#include <string_view>

namespace klunortredi::csp {

class EnvelopedDataWriter {
public:
    /// `unprotectedAttributes`: DER of each Attribute. `parameters`: DER, of the content cipher.
    EnvelopedDataWriter(std::string_view contentType, const ContentAlgorithm& content, ByteView parameters,
                        const RecipientInfos& recipients, std::vector<Bytes> unprotectedAttributes);

    /// DER up to the first octet of the ciphertext, and what follows its last one. `tag` is what the cipher gives.
    [[nodiscard]] Bytes definiteHead(std::uint64_t ciphertextSize) const;
    [[nodiscard]] Bytes definiteTail(ByteView tag) const;

    /// BER with indefinite lengths: between head and tail stand OCTET STRINGs, the segments of the ciphertext.
    [[nodiscard]] Bytes streamHead() const;
    [[nodiscard]] Bytes streamTail(ByteView tag) const;

private:
    const ContentAlgorithm& content_;
    std::vector<Bytes> unprotectedAttributes_;
    Bytes type_;                 ///< of the message
    Bytes versionAndRecipients_; ///< up to the EncryptedContentInfo
    Bytes contentDescription_;   ///< content type and cipher
};

} // namespace klunortredi::csp
