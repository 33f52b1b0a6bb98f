#pragma once

/// The structure of a SignedData message (RFC 5652, 3 and 5.1; PKCS#7 1.5 where its content is an OCTET STRING), read
/// as it streams.

#include "core/bytes.hpp"
#include "messages/structure_reader.hpp"

#include <cstdint>
#include <vector>

namespace klunortredi::csp {

/// The retained pieces of a SignedData, each a whole element: certificates and CRLs as they came, the others with
/// definite lengths.
struct SignedDataParts {
    Bytes contentType; ///< of the ContentInfo
    Bytes version;
    std::vector<Bytes> digestAlgorithms;
    Bytes eContentType;
    bool hasContent = false;
    std::vector<Bytes> certificates; ///< CertificateChoices: certificates and other kinds
    std::vector<Bytes> crls;         ///< RevocationInfoChoices
    std::vector<Bytes> signerInfos;
    std::uint64_t encapContentInfoBegin = 0; ///< where in the message the EncapsulatedContentInfo stands
    std::uint64_t encapContentInfoEnd = 0;
};

/// Told what must be acted on while the message streams. May throw ApiError.
class SignedDataListener {
public:
    SignedDataListener() = default;
    SignedDataListener(const SignedDataListener&) = delete;
    SignedDataListener& operator=(const SignedDataListener&) = delete;
    virtual ~SignedDataListener() = default;

    /// The digest algorithms and the content's type are known; octets of content may follow.
    virtual void contentBegins(const SignedDataParts& parts) = 0;
    virtual void content(ByteView piece) = 0;
};

class SignedDataReader final : private StructureListener {
public:
    /// `listener` outlives the reader.
    explicit SignedDataReader(SignedDataListener& listener);

    /// Takes the next octets of the message. Throws ApiError: CRYPT_E_INVALID_MSG_TYPE for another kind of message,
    /// CRYPT_E_ASN1_BADTAG or CRYPT_E_ASN1_CORRUPT for what is not SignedData, CRYPT_E_ASN1_LARGE beyond a limit.
    void feed(ByteView piece) { reader_.feed(piece); }
    /// Tells that the message ends here. ApiError(CRYPT_E_ASN1_EOD) when it is not complete.
    void finish() const { reader_.finish(); }
    [[nodiscard]] const SignedDataParts& parts() const noexcept { return parts_; }

private:
    void kept(structure::Node node, Bytes&& element) override;
    void content(ByteView piece) override { listener_.content(piece); }
    void began(structure::Node node, std::uint64_t position) override;
    void ended(structure::Node node, std::uint64_t position) override;

    SignedDataListener& listener_;
    SignedDataParts parts_;
    StructureReader reader_;
};

} // namespace klunortredi::csp
