#pragma once

/// The structure of a SignedData message (RFC 5652, 3 and 5.1; PKCS#7 1.5 where its content is an OCTET STRING), read
/// as it streams.

#include "asn1/tlv_parser.hpp"
#include "core/bytes.hpp"

#include <cstddef>
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

class SignedDataReader final : private TlvHandler {
public:
    /// `listener` outlives the reader.
    explicit SignedDataReader(SignedDataListener& listener);

    /// Takes the next octets of the message. Throws ApiError: CRYPT_E_INVALID_MSG_TYPE for another kind of message,
    /// CRYPT_E_ASN1_BADTAG or CRYPT_E_ASN1_CORRUPT for what is not SignedData, CRYPT_E_ASN1_LARGE beyond a limit.
    void feed(ByteView piece) { parser_.feed(piece); }
    /// Tells that the message ends here. ApiError(CRYPT_E_ASN1_EOD) when it is not complete.
    void finish() const { parser_.finish(); }
    [[nodiscard]] bool complete() const noexcept { return parser_.complete(); }
    [[nodiscard]] const SignedDataParts& parts() const noexcept { return parts_; }

    /// A place in the structure.
    enum class Node : std::uint8_t {
        Message,
        ContentInfo,
        ContentType,
        ExplicitContent,
        SignedData,
        Version,
        DigestAlgorithms,
        DigestAlgorithm,
        EncapContentInfo,
        EContentType,
        ExplicitEContent,
        EContent,
        Segment,
        Certificates,
        Certificate,
        Crls,
        Crl,
        SignerInfos,
        SignerInfo,
    };

private:
    struct Open {
        Node node;
        std::size_t nextRow; ///< first row of the grammar that its next member may match
    };

    Content begin(const TlvElement& element) override;
    void octets(ByteView piece) override;
    void end(ByteView endOfContents, std::uint64_t position) override;

    void keep(ByteView octets);
    void captured();

    SignedDataListener& listener_;
    SignedDataParts parts_;
    std::vector<Open> open_;
    std::size_t retained_ = 0;
    Bytes capture_;
    std::size_t captureDepth_ = 0; ///< open elements inside what is being captured, itself included
    TlvParser parser_;
};

} // namespace klunortredi::csp
