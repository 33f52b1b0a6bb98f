#include "orvik/plugin/crypto/exception/crypto_exception.hpp"

#include "code_category.hpp"

namespace orvik::plugin::crypto::exception {

namespace {

using Code = CryptoException::Code;

constexpr plugin::exception::internal::CodeText texts[] = {
    {static_cast<int>(Code::privateKeyUnavailable), "the private key is not available"},
    {static_cast<int>(Code::noCertificate), "there is no certificate"},
    {static_cast<int>(Code::noProvider), "no cryptographic service or provider is available"},
    {static_cast<int>(Code::noContainer), "the key container is missing or cannot be opened"},
    {static_cast<int>(Code::algorithmUnsupported), "the algorithm is not supported"},
    {static_cast<int>(Code::unknownFormat), "unknown signature format"},
    {static_cast<int>(Code::parameterSetUnsupported), "the provider does not support the key parameter set"},
    {static_cast<int>(Code::keyUsageForbids), "the certificate may not be used for digital signatures"},
    {static_cast<int>(Code::emptyProviderName), "the provider name is empty"},
    {static_cast<int>(Code::containerMismatch), "the key in the container is not the certificate's"},
    {static_cast<int>(Code::badCertificateData), "the data is not a certificate"},
    {static_cast<int>(Code::wrongProviderType), "the provider is of another type than the certificate says"},
    {static_cast<int>(Code::badAttribute), "bad value of a signed attribute"},
    {static_cast<int>(Code::authorizationRefused), "the PIN was not accepted or not given"},
    {static_cast<int>(Code::decryptionFailed), "the message cannot be decrypted"},
};

} // namespace

const std::error_category& cryptoCategory() noexcept {
    static const plugin::exception::internal::CodeCategory category("Crypto", texts);
    return category;
}

CryptoException::CryptoException(Code code) : Exception(std::error_code(static_cast<int>(code), cryptoCategory())) {}

CryptoException::~CryptoException() = default;

} // namespace orvik::plugin::crypto::exception
