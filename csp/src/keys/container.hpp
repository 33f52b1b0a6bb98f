#pragma once

/// Key containers on disk.
///
/// A container is a directory `<home>/containers/<name>.<provider type>` (0700) of small files (0600): `container.json`
/// (in clear: which keys, their public halves), one encrypted key file per key pair, one certificate per key pair, and
/// the count of failed PIN attempts. Every change ends in one rename, so that a process killed anywhere leaves the old
/// state or the new one. Changes and PIN attempts hold a lock on the directory, across processes.

#include "core/files.hpp"
#include "core/ossl.hpp"
#include "keys/container_meta.hpp"
#include "keys/container_name.hpp"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace klunortredi::csp {

/// Decrypted key pairs by key spec. Shared, so that a signature goes on while its context is released.
using UnlockedKeys = std::map<DWORD, std::shared_ptr<EVP_PKEY>>;

/// Wrong PINs in a row after which a container locks. A person mistypes a few times; somebody who guesses has ten
/// tries at a number of six digits.
inline constexpr DWORD pinTryLimit = 10;
/// Attempts in a row that were begun and never judged, because their process was killed, after which a container locks.
/// Killing a process that opens the container with the right PIN must not lock it soon, and a guesser who kills each
/// process before a wrong PIN is counted must not go on for ever.
inline constexpr DWORD unjudgedTryLimit = 100;

/// The counts that the file of tries holds, as decimal numbers with a blank between; the second may be missing (0).
struct PinTries {
    DWORD failed = 0;   ///< judged wrong since the last right PIN
    DWORD unjudged = 0; ///< begun and not judged since the last right PIN, with the one that is being judged
};

class Container {
public:
    /// Throws ApiError: NTE_BAD_KEYSET when there is none, NTE_KEYSET_ENTRY_BAD when its description is damaged.
    static Container open(const ContainerId& id);

    [[nodiscard]] const ContainerId& id() const noexcept { return meta_.id; }
    [[nodiscard]] const std::vector<KeyEntry>& keys() const noexcept { return meta_.keys; }
    /// Throws ApiError(NTE_NO_KEY) when the container has no key pair of that spec.
    const KeyEntry& key(DWORD spec) const;
    [[nodiscard]] bool wantsPin() const noexcept { return meta_.wantsPin; }

    /// PIN attempts left; 0 is a locked container.
    [[nodiscard]] DWORD triesRemaining() const;
    /// Unlocks the container for new attempts. The PIN stays as it is.
    void resetTries();

    /// Decrypts the key pairs. The attempt is counted on disk as unjudged before it is judged, and as failed
    /// afterwards; a right PIN sets both counts back. Throws ApiError: SCARD_W_WRONG_CHV, SCARD_W_CHV_BLOCKED,
    /// NTE_KEYSET_ENTRY_BAD (damaged, not counted). A wrong PIN for a container without one is not counted: there is
    /// nothing to guess.
    UnlockedKeys unlock(std::string_view pin);

    /// Encrypts every key pair anew, all or none, and sets the count of attempts back. `keys` come from `unlock`.
    /// Throws ApiError(NTE_BAD_KEY_STATE) when the PIN was changed since then: the other change stands.
    void changePin(const UnlockedKeys& keys, std::string_view pin);

    /// Adds a key pair. The first one decides what the container's PIN is; for another it is proved, as `unlock` does
    /// and with its errors. It is on disk when this returns, and not in the container when this throws. Throws
    /// ApiError(NTE_EXISTS) when there is one of that spec: it is never replaced.
    void addKey(DWORD spec, EVP_PKEY* key, bool exportable, std::string_view pin);

    /// DER of the certificate beside the key pair; nothing when there is none.
    [[nodiscard]] std::optional<Bytes> certificate(DWORD spec) const;
    /// Throws ApiError: NTE_BAD_DATA when `der` is no certificate, NTE_BAD_PUBLIC_KEY when it is of another key.
    void setCertificate(DWORD spec, ByteView der);

    /// Names of the damaged files, as far as that can be told without the PIN: a key file, a public key (it stands in
    /// the description), the count or a certificate that is missing, malformed or does not match. Throws ApiError for
    /// what is no damage: ERROR_ACCESS_DENIED, and NTE_PROV_TYPE_NOT_DEF where the GOST engine is not installed.
    [[nodiscard]] std::vector<std::string> damagedFiles();

private:
    friend class NewContainer;
    Container(std::filesystem::path directory, ContainerMeta meta) noexcept
        : directory_(std::move(directory)), meta_(std::move(meta)) {}

    /// The lock for a change, with the description read anew under it. Throws ApiError(NTE_BAD_KEYSET) when the
    /// container is gone, also where another one has its name.
    [[nodiscard]] std::optional<files::Lock> lock();
    UnlockedKeys unlockLocked(std::string_view pin);
    Bytes readKeyFile(const KeyEntry& key) const;
    PinTries tries() const;
    void writeTries(PinTries tries) const;
    void rememberOpened();
    void requireUsable() const;
    [[nodiscard]] UnlockedKeys decrypt(std::string_view pin) const;
    [[nodiscard]] KeyEntry writeKey(KeyEntry entry, EVP_PKEY* key, std::string_view pin) const;
    /// False when the disk failed after everybody sees the new description: a power cut may bring the old one back.
    [[nodiscard]] bool replaceMeta(ContainerMeta next);
    void removeUnused() const;

    std::filesystem::path directory_;
    ContainerMeta meta_;
    std::map<DWORD, unsigned> opened_; ///< generation of each key pair that this object decrypted or made, by key spec
    bool reserved_ = false;            ///< a NewContainer holds the lock
};

/// A container that is being made: under a temporary name until `commit`, gone when not committed. The name is reserved
/// from the start, also against other processes, and free again when this process dies.
class NewContainer {
public:
    /// Throws ApiError(NTE_EXISTS) when the container is there or somebody is making it.
    explicit NewContainer(const ContainerId& id);
    NewContainer(const NewContainer&) = delete;
    NewContainer& operator=(const NewContainer&) = delete;
    ~NewContainer();

    [[nodiscard]] Container& container() noexcept { return container_; }
    [[nodiscard]] const Container& container() const noexcept { return container_; }
    /// Moves it to its name, complete and synchronised to disk, and returns the container there. Requires at least one
    /// key pair; to be called once. When it throws, nothing has the name and the draft has no key pair again.
    Container commit();

private:
    std::optional<files::Lock> reservation_;
    Container container_;
};

/// Plain names of the containers of a provider type, sorted.
std::vector<std::string> listContainers(DWORD providerType);

/// Removes a container, at once and whole. Needs no PIN. Throws ApiError(NTE_BAD_KEYSET) when there is none.
void deleteContainer(const ContainerId& id);

} // namespace klunortredi::csp
