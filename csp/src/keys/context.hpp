#pragma once

/// Provider contexts: what an HCRYPTPROV stands for.

#include "core/bytes.hpp"
#include "core/handle_table.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/ossl.hpp"

#include <memory>

namespace klunortredi::csp {

/// The part of a provider context that messages, certificates and requests use.
class SigningContext {
public:
    SigningContext() = default;
    SigningContext(const SigningContext&) = delete;
    SigningContext& operator=(const SigningContext&) = delete;
    virtual ~SigningContext() = default;

    /// DER SubjectPublicKeyInfo of the key pair; ApiError(NTE_NO_KEY) when the container has none of that spec.
    [[nodiscard]] virtual Bytes publicKeyInfo(DWORD keySpec) const = 0;
    /// Signature in the order of X.509 and CMS (see crypto/signature.hpp). ApiError(SCARD_W_CARD_NOT_AUTHENTICATED)
    /// when the container still wants its PIN.
    virtual Bytes sign(DWORD keySpec, const DigestAlgorithm& algorithm, ByteView digest) = 0;
};

/// The context behind a handle. Throws ApiError(ERROR_INVALID_HANDLE) for a handle that is not one of ours.
std::shared_ptr<SigningContext> signingContext(unsigned long hProv);

} // namespace klunortredi::csp
