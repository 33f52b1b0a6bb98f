#pragma once

/// CMS messages that the service under test makes and reads.

#include "self_signed.hpp"

namespace conformance {

/// How a message is fed, and whether its output comes through a callback.
struct Feeding {
    bool detached = false;
    bool streamed = false;
    std::size_t chunk = 0; ///< octets per CryptMsgUpdate; 0: all at once
};

/// A key pair with its certificate.
class Signer {
public:
    explicit Signer(const ProviderKind& kind);

    [[nodiscard]] unsigned long context() const { return container_.context(); }
    [[nodiscard]] CERT_INFO* info() const { return certificate_.get()->pCertInfo; }
    [[nodiscard]] const Bytes& der() const { return der_; }

private:
    ThrowAway container_;
    Bytes der_;
    Certificate certificate_;
};

/// What CryptMsgOpenToEncode takes for one signer with one signed attribute, the signing time. Holds what it points to.
class Description {
public:
    Description(const Signer& signer, const ProviderKind& kind);
    Description(const Description&) = delete;
    Description& operator=(const Description&) = delete;

    CMSG_SIGNER_ENCODE_INFO signer{};
    CMSG_SIGNED_ENCODE_INFO info{};

private:
    std::string hashOid_;
    std::string attributeOid_;
    Bytes time_;
    Bytes der_;
    CRYPT_ATTR_BLOB value_{};
    CRYPT_ATTRIBUTE attribute_{};
    CERT_BLOB certificate_{};
};

/// Where a streamed message goes.
struct Sink {
    Bytes octets;
    int finals = 0;
    /// cbContent indefinite.
    CMSG_STREAM_INFO info();
};

/// Signs `content`; throws when a step fails.
Bytes signMessage(const Signer& signer, const ProviderKind& kind, const Bytes& content, const Feeding& feeding);

/// A message that was read whole.
struct Decoded {
    Message message;
    Bytes streamed; ///< content that came through the callback
};
/// Reads a message, and the content behind it when it is detached. Throws when a step fails.
Decoded readMessage(const Bytes& encoded, const Bytes& content, const Feeding& feeding);
/// CryptMsgUpdate in pieces; false at the first that is refused.
bool feed(const Message& message, const Bytes& octets, std::size_t chunk);
/// A parameter for walkSizes and fetch.
Fetch messageParam(const Message& message, DWORD type, DWORD index = 0);

} // namespace conformance
