#pragma once

/// An EnvelopedData or AuthEnvelopedData message being made.

#include "capi/types.h"
#include "crypto/content_cipher.hpp"
#include "messages/content_segments.hpp"
#include "messages/enveloped_data_writer.hpp"
#include "messages/message_encoder.hpp"

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace klunortredi::csp {

/// Makes a content key and wraps it for each recipient when it is opened; content passes through the cipher and is not
/// kept.
class EnvelopedEncoder final : public MessageEncoder {
public:
    /// `contentType`: dotted type of the content. With `stream`, the message goes to its callback while content
    /// arrives: DER when the size of the content is given, else BER of indefinite lengths. Without, it is kept for
    /// CMSG_CONTENT_PARAM.
    ///
    /// ContentEncryptionAlgorithm: an OID of contentAlgorithms(), the parameters empty, or for GOST 28147-89 an
    /// OBJECT IDENTIFIER, the set of S-boxes; initialisation vectors are always the service's own.
    ///
    /// ApiError: ERROR_INVALID_PARAMETER, CRYPT_E_UNKNOWN_ALGO for an unknown cipher, ERROR_NOT_SUPPORTED for
    /// certificates and CRLs of the originator, and the errors of recipientInfos().
    EnvelopedEncoder(const CMSG_ENVELOPED_ENCODE_INFO& info, std::string_view contentType,
                     std::optional<StreamOutput> stream);
    ~EnvelopedEncoder() override;

    [[nodiscard]] std::vector<Bytes> certificates() const override { return {}; }
    [[nodiscard]] std::vector<Bytes> crls() const override { return {}; }

private:
    void takeContent(ByteView piece) override;
    void finish() override;

    /// Octets of ciphertext for that many of plaintext.
    [[nodiscard]] std::uint64_t ciphertextSize(std::uint64_t plaintextSize) const noexcept;
    void writeHead();
    void takeCiphertext(ByteView ciphertext);

    std::unique_ptr<ContentEncryptor> encryptor_;
    std::size_t paddingBlock_ = 0; ///< 0: the cipher does not pad
    std::optional<EnvelopedDataWriter> writer_;
    ContentSegments segments_;
    bool headWritten_ = false;
    Bytes ciphertext_; ///< all of it, when the message is made in one piece
};

} // namespace klunortredi::csp
