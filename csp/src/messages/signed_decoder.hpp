#pragma once

/// A SignedData message being read.

#include "messages/carried_certificates.hpp"
#include "messages/covered_content.hpp"
#include "messages/handles.hpp"
#include "messages/signed_data_reader.hpp"
#include "messages/signer_info.hpp"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace klunortredi::csp {

class SignedDecoder final : public Message, private SignedDataListener {
public:
    /// With `stream`, content goes to its callback and nothing of it is kept; without, the whole message is kept for
    /// CMSG_CONTENT_PARAM and CMSG_ENCODED_MESSAGE. `detached`: after the message, updates feed the content.
    SignedDecoder(bool detached, std::optional<StreamOutput> stream);

    [[nodiscard]] std::vector<Bytes> certificates() const override;
    [[nodiscard]] std::vector<Bytes> crls() const override;
    /// The same without copies; the views live as long as the message.
    [[nodiscard]] const std::vector<ByteView>& certificateViews() const;
    [[nodiscard]] const std::vector<ByteView>& crlViews() const;

    // What the parameters are made of. All but these need a message read to its end.
    [[nodiscard]] const std::vector<SignerInfo>& signers() const noexcept { return signers_; }
    [[nodiscard]] const std::string& contentType() const noexcept { return contentType_; }
    /// The content's hash by the signer's algorithm. ApiError: CRYPT_E_STREAM_MSG_NOT_READY without content,
    /// CRYPT_E_UNKNOWN_ALGO for an algorithm unknown or not listed by the message.
    [[nodiscard]] const Bytes& contentHash(const SignerInfo& signer) const;
    /// The hashes of what the signatures are about. ApiError: CRYPT_E_STREAM_MSG_NOT_READY without content,
    /// CRYPT_E_HASH_VALUE when the message brings content that differs from the detached one.
    [[nodiscard]] const ContentHasher& signedContent() const { return content_.hashes(); }
    /// The certificates, decoded at the first call. Lives as long as the message.
    [[nodiscard]] const CarriedCertificates& carriedCertificates() const;
    /// The content, when this message has it in one piece; ApiError(CRYPT_E_INVALID_MSG_TYPE) when it does not.
    [[nodiscard]] ByteView content() const { return content_.onePiece(); }
    /// The whole message; with definite lengths where an attribute was added. Errors as of `content`.
    [[nodiscard]] Bytes encoded() const;

private:
    void doUpdate(ByteView piece, bool final) override;
    void doParam(DWORD type, DWORD index, void* data, DWORD* size) override;
    void doControl(DWORD type, const void* parameters) override;
    void contentBegins(const SignedDataParts& parts) override;
    void content(ByteView piece) override;

    void feedMessage(ByteView piece, bool final);
    void requireRead() const;
    void addUnsignedAttribute(const CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR_PARA* parameters);

    const bool streamed_;
    bool read_ = false; ///< the message, to its end
    SignedDataReader reader_;
    std::vector<SignerInfo> signers_;
    std::vector<Bytes> signerInfos_; ///< encoded, with definite lengths
    std::vector<ByteView> certificateViews_;
    std::vector<ByteView> crlViews_;
    mutable std::unique_ptr<CarriedCertificates> carried_;
    std::string contentType_;
    CoveredContent content_;
    bool changed_ = false;
    Bytes encoded_;
};

} // namespace klunortredi::csp
