#pragma once

#include "capi/types.h"
#include "crypto/wincrypt/handles.hpp"
#include "orvik/plugin/crypto/format/signature_request.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <string>
#include <vector>

namespace orvik::plugin::crypto {
class ICertificate;
class IPrivateKey;
} // namespace orvik::plugin::crypto

namespace orvik::plugin::wincrypt::binary {

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

    /// Opens the message; throws SystemException.
    void open(DWORD flags);
    [[nodiscard]] void* message() const { return message_.get(); }
    [[nodiscard]] const boost::shared_ptr<crypto::IPrivateKey>& privateKey() const { return privateKey_; }
    /// What the service has streamed out so far.
    [[nodiscard]] std::vector<unsigned char>& output() { return output_; }

protected:
    /// Lets the message carry these as well, whose octets stay the caller's as long as the context lives.
    void addCertificates(const std::vector<CRYPT_DATA_BLOB>& certificates);

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

/// A signature whose message also carries certificates of the signer's issuers.
class ChainContext : public Context {
public:
    /// `issuers` are DER. Throws as Context does.
    ChainContext(const crypto::ICertificate& certificate,
                 const std::vector<crypto::format::SignatureRequest::Attribute>& attributes,
                 std::vector<std::string> issuers);

private:
    std::vector<std::string> issuers_;
};

} // namespace orvik::plugin::wincrypt::binary
