#include "container_link.hpp"

#include "decoded_structure.hpp"

#include "crypto/wincrypt/tools.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::exception::CryptoException;
using Code = CryptoException::Code;

void require(bool condition, Code otherwise, const char* file) {
    if (!condition) {
        exception::raise(CryptoException(otherwise), {file, "validateCertificate"});
    }
}

bool named(const wchar_t* name) {
    return name != nullptr && *name != L'\0';
}

} // namespace
} // namespace internal

void requireContainerLink(const crypto::ICertificate& certificate, const char* file) {
    using internal::Code;
    const auto property = keyProvProperty(tools::toPCCERT_CONTEXT(certificate.context()));
    const auto* link = structure<CRYPT_KEY_PROV_INFO>(property);
    internal::require(link != nullptr, Code::noContainer, file);
    internal::require(internal::named(link->pwszProvName), Code::noProvider, file);
    internal::require(internal::named(link->pwszContainerName), Code::noContainer, file);
}

} // namespace orvik::plugin::wincrypt
