#pragma once

/// What stands behind an HCRYPTHASH.

#include "crypto/digest.hpp"
#include "keys/key_object.hpp"
#include "keys/provider_context.hpp"

#include <mutex>
#include <optional>

namespace klunortredi::csp {

/// A hash in progress, or finished by reading, signing or verifying it. Thread-safe. Every call throws
/// ApiError(NTE_BAD_UID) once the provider context is released.
class HashObject {
public:
    /// Throws ApiError(NTE_BAD_ALGID) for an algorithm that the provider does not offer.
    HashObject(std::shared_ptr<ProviderContext> context, ALG_ID algorithm);

    /// Throws ApiError(NTE_BAD_HASH_STATE) when the hash is finished.
    void update(ByteView data);
    /// CryptGetHashParam. A size query leaves the hash as it is.
    void param(DWORD param, void* buffer, DWORD* size);
    /// CryptSignHash: GOST signatures in the order of CMS, RSA ones least significant octet first. A size query needs
    /// no private key and leaves the hash as it is, and so does a refused signature.
    void sign(DWORD keySpec, void* buffer, DWORD* size);
    /// CryptVerifySignature, same order. Throws ApiError: NTE_BAD_SIGNATURE; NTE_BAD_ALGID for a key that does not
    /// sign such hashes.
    void verify(ByteView signature, const KeyObject& key);

private:
    [[nodiscard]] Bytes value() const;

    std::shared_ptr<ProviderContext> context_;
    std::mutex mutex_;
    Digest digest_;
    std::optional<Bytes> finished_;
};

/// Throw ApiError(NTE_BAD_HASH) for a handle that is not one of ours.
unsigned long addHash(std::shared_ptr<HashObject> hash);
std::shared_ptr<HashObject> hashObject(unsigned long hHash);
void destroyHash(unsigned long hHash);

} // namespace klunortredi::csp
