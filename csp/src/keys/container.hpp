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
    /// Throws ApiError: NTE_BAD_KEYSET when there is none, NTE_KEYSET_ENTRY_BAD when its description is damaged,
    /// ERROR_ACCESS_DENIED when it is another user's or others may write it (core/trusted.hpp).
    static Container open(const ContainerId& id);

    [[nodiscard]] const ContainerId& id() const noexcept { return meta_.id; }
    [[nodiscard]] const std::vector<KeyEntry>& keys() const noexcept { return meta_.keys; }
    /// Throws ApiError(NTE_NO_KEY) when the container has no key pair of that spec.
    const KeyEntry& key(DWORD spec) const;
    [[nodiscard]] bool wantsPin() const noexcept { return meta_.wantsPin; }

    /// PIN attempts left; 0 is a locked container. One at most where this object could not write the count: there, a
    /// wrong PIN ends the attempts of the process.
    [[nodiscard]] DWORD triesRemaining() const;
    /// Unlocks the container for new attempts. The PIN stays as it is.
    void resetTries();

    /// Decrypts the key pairs. The attempt is counted on disk as unjudged before it is judged, and as failed
    /// afterwards; a right PIN sets both counts back. The key is derived without the container's lock, so that
    /// processes do not wait for each other. Throws ApiError: SCARD_W_WRONG_CHV, SCARD_W_CHV_BLOCKED (also for an
    /// attempt that began before the container locked), NTE_KEYSET_ENTRY_BAD (damaged, not counted), ERROR_BUSY (too
    /// many attempts at once for longer than a lock is waited for). A wrong PIN for a container without one is not
    /// counted: there is nothing to guess.
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
    /// what is not damage: a file that cannot be read now (files::isAccessError), and NTE_PROV_TYPE_NOT_DEF where the
    /// GOST engine is not installed.
    [[nodiscard]] std::vector<std::string> damagedFiles();

private:
    friend class NewContainer;
    Container(std::filesystem::path directory, ContainerMeta meta) noexcept
        : directory_(std::move(directory)), meta_(std::move(meta)) {}

    /// The lock for a change, with the description read anew under it. Throws ApiError(NTE_BAD_KEYSET) when the
    /// container is gone, also where another one has its name.
    [[nodiscard]] std::optional<files::Lock> lock();
    /// What an attempt at a PIN works on while the lock is free.
    struct Attempt {
        enum class Count { None, OnDisk, InProcess };
        std::vector<std::pair<KeyEntry, Bytes>> files; ///< the key files as they were when it began
        Count count = Count::None;                     ///< where it is counted; None: the container has no PIN
        std::optional<files::Presence> presence;       ///< shows other processes that this attempt may still be judged
    };
    [[nodiscard]] Attempt beginAttempt();
    [[nodiscard]] Attempt readAttempt() const;
    /// Counts the attempt as unjudged. False when it has to wait: attempts of living processes use up the limit.
    [[nodiscard]] bool takeTicket(Attempt& attempt);
    [[nodiscard]] static UnlockedKeys decrypt(const Attempt& attempt, std::string_view pin);
    [[nodiscard]] bool isCurrent(const Attempt& attempt) const;
    void forget(const Attempt& attempt);
    /// Writes the verdict, then throws unless the PIN is right.
    void judge(const Attempt& attempt, bool right);
    /// False when the key files were changed meanwhile: the attempt has to begin anew.
    [[nodiscard]] bool settle(const Attempt& attempt, bool right);
    Bytes readKeyFile(const KeyEntry& key) const;
    PinTries tries() const;
    void writeTries(PinTries tries) const;
    void rememberOpened();
    /// Whether the key pairs of the description are still those that this object opened.
    [[nodiscard]] bool isAsOpened() const;
    [[nodiscard]] KeyEntry writeKey(KeyEntry entry, ByteView file) const;
    [[nodiscard]] bool has(DWORD spec) const;
    /// Puts a new key pair's file and its line of the description on disk. Call with the lock held.
    void store(const KeyEntry& entry, ByteView file, bool wantsPin);
    /// `onDisk`, or what this process may still do where the count cannot be written.
    [[nodiscard]] DWORD triesLeft(DWORD onDisk) const;
    /// False when the disk failed after everybody sees the new description: a power cut may bring the old one back.
    [[nodiscard]] bool replaceMeta(ContainerMeta next);
    void removeUnused() const;

    std::filesystem::path directory_;
    ContainerMeta meta_;
    std::map<DWORD, unsigned> opened_; ///< generation of each key pair that this object decrypted or made, by key spec
    bool reserved_ = false;            ///< a NewContainer holds the lock
    bool uncounted_ = false;           ///< the count of tries could not be written
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
    /// Removes what `commit` put in place. Throws ApiError, NTE_BAD_KEYSET when it is gone, also where another
    /// container has its name by now: the new one is kept.
    void undo();

private:
    std::optional<files::Directory> made_; ///< after `commit`
    std::optional<files::Lock> reservation_;
    Container container_;
};

/// Plain names of the containers of a provider type, sorted. Throws ApiError when the folder cannot be read.
std::vector<std::string> listContainers(DWORD providerType);

/// Removes a container, at once and whole. Needs no PIN. Throws ApiError: NTE_BAD_KEYSET when there is none; when a
/// file of it cannot be removed, what is left has the container's name again, so that the call may be repeated.
void deleteContainer(const ContainerId& id);

} // namespace klunortredi::csp
