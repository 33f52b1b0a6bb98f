#pragma once

/// An EnvelopedData or AuthEnvelopedData message being read and decrypted.

#include "crypto/content_cipher.hpp"
#include "messages/ciphertext_spool.hpp"
#include "messages/content_output.hpp"
#include "messages/enveloped_data_reader.hpp"
#include "messages/handles.hpp"

#include <memory>
#include <optional>

namespace klunortredi::csp {

/// The ciphertext waits in a spool until CMSG_CTRL_DECRYPT brings the key; from then on the plaintext streams out.
///
/// Content that is authenticated leaves only when all of it has been found right: it is decrypted twice, first for
/// nothing but the check. Content that is not authenticated leaves as it is decrypted.
class EnvelopedDecoder final : public Message, private CiphertextListener {
public:
    /// With `stream`, plaintext goes to its callback and nothing of it is kept; without, it is kept for
    /// CMSG_CONTENT_PARAM.
    explicit EnvelopedDecoder(std::optional<StreamOutput> stream);

    [[nodiscard]] std::vector<Bytes> certificates() const override { return {}; }
    [[nodiscard]] std::vector<Bytes> crls() const override { return {}; }

    // What the parameters are made of.
    /// ApiError(CRYPT_E_STREAM_MSG_NOT_READY) until everything before the ciphertext is read.
    const EnvelopedDataParts& head() const;
    /// The same until the end of the message is read.
    [[nodiscard]] const EnvelopedDataParts& whole() const;
    /// The index of the recipient whose key decrypted; ApiError(CRYPT_E_NOT_DECRYPTED) before.
    [[nodiscard]] DWORD recipientIndex() const;
    /// The plaintext in one piece. ApiError: CRYPT_E_INVALID_MSG_TYPE when it was streamed, CRYPT_E_NOT_DECRYPTED
    /// before it is there.
    [[nodiscard]] ByteView content() const;

private:
    enum class Stage {
        Locked,    ///< no key yet
        Unlocked,  ///< the key is there, the content's end is not
        Decrypted, ///< all plaintext is out
        Failed     ///< decryption failed; what was given of unauthenticated content is not to be used
    };

    void doUpdate(ByteView piece, bool final) override;
    void doParam(DWORD type, DWORD index, void* data, DWORD* size) override;
    void doControl(DWORD type, const void* parameters) override;
    void ciphertext(ByteView piece) override;

    void unlock(const CMSG_CTRL_DECRYPT_PARA& parameters);
    void decryptSpooled();
    void finish();
    void checkSpooled(ByteView key) const;
    [[nodiscard]] std::unique_ptr<ContentDecryptor> newDecryptor(ByteView key) const;
    [[nodiscard]] Bytes tag() const;
    void decrypt(ByteView piece);

    ContentOutput output_;
    EnvelopedDataReader reader_;
    CiphertextSpool spool_;
    Stage stage_ = Stage::Locked;
    bool complete_ = false;
    const ContentAlgorithm* algorithm_ = nullptr; ///< once unlocked
    SecretBytes key_;                             ///< of authenticated content, until its end is read
    DWORD recipientIndex_ = 0;
    std::unique_ptr<ContentDecryptor> decryptor_; ///< of content that is not authenticated
    Bytes plaintext_;                             ///< of one piece
};

} // namespace klunortredi::csp
