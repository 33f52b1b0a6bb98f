#pragma once

/// Certificates that the service under test signs with its own key pairs.

#include "providers.hpp"

namespace conformance {

/// DER of a certificate "CN=Conformance <keySpec>" of a key pair, signed by that key pair through
/// CryptSignAndEncodeCertificate; valid as the samples are. Throws when a step fails.
Bytes selfSigned(unsigned long context, DWORD keySpec, const ProviderKind& kind);

/// A CERT_INFO for signing, with what it points to.
class ToBeSigned {
public:
    ToBeSigned(unsigned long context, DWORD keySpec, const ProviderKind& kind);
    ToBeSigned(const ToBeSigned&) = delete;
    ToBeSigned& operator=(const ToBeSigned&) = delete;

    [[nodiscard]] CERT_INFO* info() { return &info_; }
    [[nodiscard]] CRYPT_ALGORITHM_IDENTIFIER* algorithm() { return &info_.SignatureAlgorithm; }

private:
    std::string signatureOid_;
    Bytes name_;
    Bytes serial_;
    Bytes publicKey_;
    CERT_INFO info_{};
};

} // namespace conformance
