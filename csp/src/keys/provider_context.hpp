#pragma once

/// What stands behind an HCRYPTPROV.

#include "keys/container.hpp"
#include "keys/context.hpp"
#include "keys/enumeration.hpp"
#include "keys/key_access.hpp"
#include "keys/providers.hpp"

#include <map>
#include <mutex>
#include <optional>

namespace klunortredi::csp {

/// A provider, with or without a key container. Thread-safe.
class ProviderContext final : public SigningContext {
public:
    /// CRYPT_VERIFYCONTEXT: no container.
    explicit ProviderContext(const ProviderRecord& provider) : provider_(provider) {}
    ProviderContext(const ProviderRecord& provider, Container container);
    /// CRYPT_NEWKEYSET.
    ProviderContext(const ProviderRecord& provider, std::unique_ptr<NewContainer> draft);

    [[nodiscard]] const ProviderRecord& provider() const noexcept { return provider_; }
    /// Throws ApiError(NTE_BAD_KEYSET) without a container.
    [[nodiscard]] ContainerId containerId() const;

    void addReference();
    /// True when that was the last one.
    bool removeReference();
    /// Throws ApiError(NTE_BAD_UID) once the last reference is gone: for keys and hashes made from this context.
    void requireAlive() const;

    /// The last reference is gone: gives up a container without a key pair. Its name is free at once, also when
    /// somebody still holds the context.
    void close();

    [[nodiscard]] Bytes publicKeyInfo(DWORD keySpec) const override;
    Bytes sign(DWORD keySpec, const DigestAlgorithm& algorithm, ByteView digest, RsaScheme scheme) override;
    SecretBytes unwrap(DWORD keySpec, const WrappedKey& wrapped, std::size_t keySize) override;
    /// Size of a signature, found without the private key. Throws ApiError: NTE_NO_KEY, NTE_BAD_ALGID.
    [[nodiscard]] std::size_t signatureSize(DWORD keySpec, const DigestAlgorithm& algorithm);
    [[nodiscard]] bool exportable(DWORD keySpec) const;
    [[nodiscard]] std::optional<Bytes> certificate(DWORD keySpec) const;
    void setCertificate(DWORD keySpec, ByteView der);

    /// What CryptGenKey asks for.
    struct KeyRequest {
        DWORD keySpec;
        DWORD bits; ///< 0: the default
        bool exportable;
    };
    /// When it returns, the key pair is on disk under the container's name, the first one with the whole container.
    /// When it throws, no key pair was made; in a container that is being made, a later call may make one.
    void generateKey(const KeyRequest& request);
    /// The parameter set of the next key pair of that spec, as a dotted OID; the key algorithm's own OID chooses the
    /// default. Throws ApiError(NTE_BAD_ALGID) for another algorithm's.
    void chooseParameters(DWORD keySpec, std::string_view oid);

    void presentPin(std::string_view pin);
    void verifyPin(std::string_view pin);
    void setNewPin(std::string_view pin); ///< of a container that this context made; NTE_BAD_FLAGS for another
    void changePin(std::string_view pin);
    [[nodiscard]] DWORD pinTriesRemaining() const;

    /// Where the caller's enumerations stand.
    [[nodiscard]] Enumeration& algorithms() noexcept { return algorithms_; }
    [[nodiscard]] Enumeration& containers() noexcept { return containers_; }

private:
    Container& container();
    [[nodiscard]] const Container& container() const;
    const KeyEntry& key(DWORD keySpec) const;
    [[nodiscard]] std::shared_ptr<EVP_PKEY> privateKey(DWORD keySpec);
    [[nodiscard]] ossl::Pkey makeKey(const KeyRequest& request) const;

    const ProviderRecord& provider_;
    mutable std::mutex mutex_;
    std::unique_ptr<NewContainer> draft_; ///< until it has a key pair
    const bool made_ = false;             ///< CRYPT_NEWKEYSET
    std::optional<Container> container_;
    KeyAccess access_;
    std::map<DWORD, std::string> parameters_;     ///< chosen for the next key pair, by key spec
    std::map<DWORD, std::size_t> signatureSizes_; ///< found already, by key spec: decoding a key costs like signing
    std::size_t references_ = 1;
    Enumeration algorithms_;
    Enumeration containers_;
};

/// Throws ApiError(ERROR_INVALID_HANDLE) for a handle that is not one of ours.
std::shared_ptr<ProviderContext> providerContext(unsigned long hProv);

} // namespace klunortredi::csp
