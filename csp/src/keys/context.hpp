#pragma once

/// Provider contexts: what an HCRYPTPROV stands for.

#include "core/bytes.hpp"
#include "core/handle_table.hpp"
#include "core/ossl.hpp"
#include "crypto/key_wrapping.hpp"
#include "crypto/signature.hpp"

#include <memory>
#include <string_view>

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
    virtual Bytes sign(DWORD keySpec, const DigestAlgorithm& algorithm, ByteView digest, RsaScheme scheme) = 0;
    /// The content-encryption key of `keySize` octets that `wrapped` brings to the key pair of either spec. Errors as
    /// of `unwrapKey` (crypto/key_wrapping.hpp) and those of `sign` about the container.
    virtual SecretBytes unwrap(DWORD keySpec, const WrappedKey& wrapped, std::size_t keySize) = 0;
};

/// The context behind a handle. Throws ApiError(ERROR_INVALID_HANDLE) for a handle that is not one of ours.
std::shared_ptr<SigningContext> signingContext(unsigned long hProv);

/// What CryptAcquireContextW does: a new handle with one reference, which the caller releases with CryptReleaseContext
/// (0 with CRYPT_DELETEKEYSET, which only deletes). An empty `container` or `provider` stands for a null pointer there.
/// Errors, in the order in which they are looked for: NTE_BAD_FLAGS, NTE_BAD_PROV_TYPE or NTE_PROV_TYPE_NOT_DEF,
/// NTE_KEYSET_NOT_DEF or NTE_PROV_TYPE_NO_MATCH, NTE_BAD_KEYSET_PARAM (a name that cannot be), NTE_BAD_KEYSET (no such
/// container), NTE_EXISTS (CRYPT_NEWKEYSET).
unsigned long acquireContext(std::wstring_view container, std::wstring_view provider, DWORD type, DWORD flags);
/// What CryptReleaseContext and CryptContextAddRef do.
void releaseContext(unsigned long hProv);
void addContextReference(unsigned long hProv);

} // namespace klunortredi::csp
