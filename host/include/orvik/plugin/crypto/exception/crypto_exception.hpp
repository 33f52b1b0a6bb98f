#pragma once

#include "orvik/plugin/exception/exception.hpp"

namespace orvik::plugin::crypto::exception {

/// Cryptographic failures by the framework's numbers.
class ORVIK_EXPORT CryptoException : public plugin::exception::Exception {
public:
    enum class Code : int {
        privateKeyUnavailable = 30001,   ///< the private key cannot be had
        noCertificate = 30003,           ///< no certificate given, or none in the message
        noProvider = 30004,              ///< no CryptoAPI service, or no provider, for the operation
        noContainer = 30005,             ///< the key container is missing or cannot be opened
        algorithmUnsupported = 30007,    ///< the provider does not offer the algorithm
        unknownFormat = 30009,           ///< no such signature format
        parameterSetUnsupported = 30023, ///< the provider does not offer the parameter set
        keyUsageForbids = 30029,         ///< the certificate may not be used for digital signatures
        emptyProviderName = 30030,       ///< a provider was asked for without a name
        containerMismatch = 30032,       ///< the container's key is not the certificate's
        badCertificateData = 30040,      ///< the input decodes to nothing
        wrongProviderType = 30047,       ///< the certificate's provider is of another type
        badAttribute = 30048,            ///< a signed attribute's value is not what its type says
        authorizationRefused = 30053,    ///< the PIN was refused or not given
        decryptionFailed = 30058,        ///< the message cannot be decrypted
    };

    explicit CryptoException(Code code);
    CryptoException(const CryptoException&) = default;
    CryptoException& operator=(const CryptoException&) = default;
    ~CryptoException() override;
};

ORVIK_EXPORT const std::error_category& cryptoCategory() noexcept;

} // namespace orvik::plugin::crypto::exception
