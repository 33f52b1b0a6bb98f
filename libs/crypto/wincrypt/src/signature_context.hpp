#pragma once

#include "sink_stream.hpp"

#include "capi/signer_fields.h"
#include "capi/types.h"
#include "crypto/wincrypt/handles.hpp"
#include "orvik/plugin/crypto/format/signature_request.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvik::plugin::crypto {
class ICertificate;
class IPrivateKey;
} // namespace orvik::plugin::crypto

namespace orvik::plugin::wincrypt::binary {

struct ExtendedParams;

/// One signature under way: the message and everything that its descriptions point to. The structures point into the
/// vectors and strings beside them, so a context stays where it was made.
class Context {
public:
    /// Descriptions stay empty for a certificate without context. Throws as normalizeSignedAttributes() and the
    /// certificate's private key do.
    Context(const crypto::ICertificate& certificate,
            const std::vector<crypto::format::SignatureRequest::Attribute>& attributes);
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    virtual ~Context();

    /// Opens the message; throws SystemException.
    void open(DWORD flags);
    [[nodiscard]] void* message() const { return message_.get(); }
    [[nodiscard]] const boost::shared_ptr<crypto::IPrivateKey>& privateKey() const { return privateKey_; }
    /// What the service has streamed out so far.
    [[nodiscard]] std::vector<unsigned char>& output() { return output_; }

    /// Counts content that is about to be passed on. Throws SystemException for more than was announced.
    virtual void count(std::size_t /*size*/) {}
    /// Throws SystemException when less content came than was announced.
    virtual void checkComplete() const {}
    /// Throws what the caller's sink threw, if it did: to be called when the service refused an update.
    virtual void rethrowSinkFailure() {}

protected:
    /// Lets the message carry these as well, whose octets stay the caller's as long as the context lives.
    void addCertificates(const std::vector<CRYPT_DATA_BLOB>& certificates);
    [[nodiscard]] CMSG_STREAM_INFO& stream() { return stream_; }
    [[nodiscard]] CMSG_SIGNED_ENCODE_INFO& signedMessage() { return signedMessage_; }

private:
    void describeAttributes();
    void describeSigner(PCCERT_CONTEXT certificate);
    void describeMessage(PCCERT_CONTEXT certificate);

    HCRYPTMSG message_;
    boost::shared_ptr<crypto::IPrivateKey> privateKey_;
    CMSG_SIGNED_ENCODE_INFO signedMessage_{};
    CMSG_STREAM_INFO stream_{};
    std::vector<CMSG_SIGNER_ENCODE_INFO> signers_;
    std::vector<CRYPT_DATA_BLOB> certificates_;
    std::vector<CRYPT_ATTRIBUTE> signedAttributes_;
    std::vector<CRYPT_ATTR_BLOB> attributeBlobs_;
    std::vector<crypto::format::SignedAttribute> normalized_;
    std::vector<std::string> attributeValues_;
    std::vector<unsigned char> output_;
    std::string hashAlgorithm_;
};

/// A signature with what ExtendedParams ask for.
class ExtendedContext : public Context {
public:
    /// Throws as Context does.
    ExtendedContext(const crypto::ICertificate& certificate,
                    const std::vector<crypto::format::SignatureRequest::Attribute>& attributes,
                    std::vector<std::string> issuers);
    ExtendedContext(const crypto::ICertificate& certificate, const ExtendedParams& params);

    void count(std::size_t size) override;
    void checkComplete() const override;
    void rethrowSinkFailure() override;

private:
    void addIssuers();
    void nameSigner(const crypto::ICertificate& certificate, const ExtendedParams& params);

    std::vector<std::string> issuers_;
    SinkStream sink_;
    std::optional<std::uint64_t> contentSize_;
    std::uint64_t taken_ = 0;
    CMSG_SIGNER_ENCODE_INFO_CMS_FIELDS signer_{}; ///< in place of the shorter form, when something is named
    std::string keyIdentifier_;
    std::string signatureAlgorithm_;
};

} // namespace orvik::plugin::wincrypt::binary
