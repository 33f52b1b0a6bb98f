#pragma once

/// The structure of an EnvelopedData (RFC 5652, 6.1) or AuthEnvelopedData (RFC 5083, 2.1) message, read as it streams.

#include "core/bytes.hpp"
#include "messages/cms_types.hpp"
#include "messages/recipient_info.hpp"
#include "messages/structure_reader.hpp"

#include <vector>

namespace klunortredi::csp {

/// What is retained of a message.
struct EnvelopedDataParts {
    bool authEnveloped = false;
    std::vector<Recipient> recipients;
    std::string contentType; ///< of what is encrypted, dotted
    AlgorithmId algorithm;   ///< contentEncryptionAlgorithm
    /// AuthEnvelopedData: the authenticated attributes as they are authenticated, DER of a SET OF; empty when absent.
    Bytes authenticatedAttributes;
    std::vector<Attribute> unprotectedAttributes;
    Bytes mac; ///< AuthEnvelopedData
};

class CiphertextListener {
public:
    CiphertextListener() = default;
    CiphertextListener(const CiphertextListener&) = delete;
    CiphertextListener& operator=(const CiphertextListener&) = delete;
    virtual ~CiphertextListener() = default;

    /// The next octets of the encrypted content. Recipients, content type and algorithm are known.
    virtual void ciphertext(ByteView piece) = 0;
};

class EnvelopedDataReader final : private StructureListener {
public:
    /// `listener` outlives the reader.
    explicit EnvelopedDataReader(CiphertextListener& listener);

    /// Takes the next octets of the message. Throws ApiError: CRYPT_E_INVALID_MSG_TYPE for another kind of message,
    /// CRYPT_E_ASN1_... for what is not enveloped data, CRYPT_E_ASN1_LARGE beyond a limit.
    void feed(ByteView piece) { reader_.feed(piece); }
    /// Tells that the message ends here. ApiError(CRYPT_E_ASN1_EOD) when it is not complete.
    void finish() const { reader_.finish(); }

    /// Whether everything before the ciphertext is known.
    [[nodiscard]] bool headRead() const noexcept { return headRead_; }
    [[nodiscard]] const EnvelopedDataParts& parts() const noexcept { return parts_; }

private:
    void kept(structure::Node node, Bytes&& element) override;
    void content(ByteView piece) override;
    void ended(structure::Node node, std::uint64_t position) override;

    void addRecipients(ByteView element);
    void attributes(Bytes&& element);

    CiphertextListener& listener_;
    EnvelopedDataParts parts_;
    bool headRead_ = false;
    bool hasMac_ = false;
    StructureReader reader_;
};

} // namespace klunortredi::csp
