#include "stores/system_store.hpp"

#include "core/files.hpp"
#include "core/folder.hpp"
#include "core/hex.hpp"
#include "core/home.hpp"
#include "core/immortal.hpp"
#include "core/skipped.hpp"
#include "crypto/key_pair.hpp"
#include "stores/crl_files.hpp"
#include "stores/store_file.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <map>

namespace klunortredi::csp {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view certificateSuffix = ".pem";
constexpr std::size_t longestName = 64;

std::string folderName(std::string_view name) {
    std::string folder;
    for (const char character : name) {
        const bool letter = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
        const bool digit = character >= '0' && character <= '9';
        const bool inner = character == '.' && !folder.empty();
        if (!letter && !digit && !inner && character != '-' && character != '_') {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        folder += character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    }
    if (folder.empty() || folder.size() > longestName) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    return folder;
}

ByteView octets(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}; // NOLINT
}

std::string_view text(const Bytes& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; // NOLINT
}

/// How long a list of names is used without a look at the folder itself: changes that leave its stamp as it was, made
/// while this process changed it too, are seen after that time at the latest.
constexpr std::chrono::seconds listLife{2};
/// Files without search numbers that every process reads in each search by number: together some milliseconds. Of a
/// larger store, an index of its size is not written again for a few certificates.
constexpr std::size_t mostUnindexed = 64;
constexpr std::size_t unindexedPart = 256; ///< one of so many more

bool isThumbprint(std::string_view name) {
    constexpr std::size_t digits = 40;
    return name.size() == digits && name.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::string stemOf(const std::string& name) {
    return name.substr(0, name.size() - certificateSuffix.size());
}

bool isLink(const fs::path& path) {
    std::error_code ignored;
    return fs::is_symlink(fs::symlink_status(path, ignored));
}

} // namespace

std::shared_ptr<SystemStore> SystemStore::open(std::string_view name) {
    struct Known {
        std::mutex mutex;
        std::map<fs::path, std::weak_ptr<SystemStore>> stores;
    };
    static Immortal<Known> known; // as the tables of handles and contexts
    const fs::path directory = dataDirectory() / "stores" / folderName(name);
    const std::lock_guard lock(known->mutex);
    std::weak_ptr<SystemStore>& shared = known->stores[directory];
    auto store = shared.lock();
    if (!store) {
        store = {new SystemStore(directory), [](SystemStore* last) {
                     const std::unique_ptr<SystemStore> owned(last);
                     const std::lock_guard forgetting(known->mutex);
                     const auto found = known->stores.find(last->directory_);
                     if (found != known->stores.end() && found->second.expired()) { // not opened again meanwhile
                         known->stores.erase(found);
                     }
                 }};
        shared = store;
    }
    return store;
}

bool SystemStore::exists() const {
    std::error_code ignored;
    return fs::is_directory(directory_, ignored);
}

std::vector<std::shared_ptr<Certificate>> SystemStore::certificates() {
    const std::lock_guard lock(mutex_);
    refresh();
    std::vector<std::shared_ptr<Certificate>> list;
    for (StoreEntry* entry = list_.after(0); entry != nullptr; entry = list_.after(entry->ordinal)) {
        if (auto certificate = load(*entry)) {
            list.push_back(std::move(certificate));
        }
    }
    keepIndex();
    return list;
}

Match SystemStore::next(std::uint64_t after, const Criterion& wanted) {
    const std::lock_guard lock(mutex_);
    const std::string& thumbprint = wanted.place.thumbprint;
    if (!thumbprint.empty()) { // its name says where it is: the folder's list is not needed
        const bool known = list_.find(thumbprint) != nullptr;
        Match found = isThumbprint(thumbprint) ? nextOf({&list_.at(thumbprint)}, after, wanted) : Match{};
        if (!known && !found.certificate) {
            list_.erase(thumbprint);
        }
        return found;
    }
    if (after == 0 || !listed_) {
        refresh();
    }
    Match found = wanted.place.number ? nextOf(list_.candidates(*wanted.place.number), after, wanted)
                                      : nextAnywhere(after, wanted);
    if (!found.certificate || wanted.place.number) {
        keepIndex();
    }
    return found;
}

Match SystemStore::nextOf(const std::vector<StoreEntry*>& candidates, std::uint64_t after, const Criterion& wanted) {
    Match found;
    for (StoreEntry* const entry : candidates) {
        const auto certificate = load(*entry);
        if (certificate && entry->ordinal > after && wanted.meets(*certificate)) {
            return {certificate};
        }
        found.unread = entry->unread() ? entry->trouble : found.unread;
    }
    return found;
}

Match SystemStore::nextAnywhere(std::uint64_t after, const Criterion& wanted) {
    for (StoreEntry* entry = list_.after(after); entry != nullptr; entry = list_.after(entry->ordinal)) {
        if (auto certificate = load(*entry); certificate && wanted.meets(*certificate)) {
            return {std::move(certificate)};
        }
    }
    Match nothing;
    for (StoreEntry* entry = list_.after(0); entry != nullptr; entry = list_.after(entry->ordinal)) {
        nothing.unread = entry->unread() ? entry->trouble : nothing.unread;
    }
    return nothing;
}

std::vector<StoredCrl> SystemStore::crls() {
    std::vector<StoredCrl> list;
    for (const fs::path& file : crlFiles(directory_)) {
        if (auto der = readCrlFile(file)) {
            list.push_back({std::move(*der), file.string()});
        }
    }
    return list;
}

std::vector<UnusableEntry> SystemStore::unusable() {
    const std::lock_guard lock(mutex_);
    refresh();
    std::vector<UnusableEntry> found;
    if (!stamp_ && isLink(directory_)) {
        found.push_back({directory_.string(), capi::ERROR_INVALID_DATA});
    }
    for (StoreEntry* entry = list_.after(0); entry != nullptr; entry = list_.after(entry->ordinal)) {
        load(*entry);
        if (entry->trouble != 0) {
            found.push_back({fileOf(entry->thumbprint).string(), entry->trouble});
        }
    }
    for (const std::string& name : others_) {
        std::error_code gone;
        if (!name.ends_with(crlFileSuffix) && fs::exists(fs::symlink_status(directory_ / name, gone))) {
            found.push_back({(directory_ / name).string(), capi::ERROR_INVALID_DATA});
        }
    }
    return found;
}

std::shared_ptr<Certificate> SystemStore::add(const Certificate& certificate, AddRule rule) {
    const std::lock_guard lock(mutex_);
    files::makeDirectories(directory_);
    const files::Lock folderLock = lockFolder();
    const auto existing = sameIn(certificate);
    if (!existing || rule == AddRule::Always) {
        return addNew(certificate, certificate.properties());
    }
    if (rule == AddRule::New) {
        fail(capi::CRYPT_E_EXISTS);
    }
    if (rule == AddRule::UseExisting) {
        Properties merged = existing->properties();
        merged.addMissing(certificate.properties());
        write(existing, merged);
        return existing;
    }
    return replace(*existing, certificate);
}

/// The certificate itself, else one of the same issuer and serial number, else null. ApiError when a file that may be
/// meant cannot be read.
std::shared_ptr<Certificate> SystemStore::sameIn(const Certificate& certificate) {
    StoreEntry* const itself = list_.find(toHex(certificate.thumbprint()));
    if (auto held = itself == nullptr ? nullptr : load(*itself)) {
        return held;
    }
    const Criterion same{[&](const Certificate& held) { return sameIssuerAndSerial(held.info(), certificate.info()); }};
    Match found =
        nextOf(list_.candidates({SearchBy::IssuerAndSerial, issuerAndSerialNumber(certificate.info())}), 0, same);
    if (found.unread != 0) { // only where nothing was found
        fail(found.unread);
    }
    return found.certificate;
}

std::shared_ptr<Certificate> SystemStore::replace(const Certificate& existing, const Certificate& certificate) {
    Properties properties = certificate.properties();
    const auto link = existing.properties().keyProvider;
    if (existing.thumbprint() == certificate.thumbprint()) {
        if (!properties.keyProvider) {
            properties.keyProvider = link;
        }
        return addNew(certificate, properties);
    }
    if (link &&
        !samePublicKey(existing.decoded().subjectPublicKeyInfo(), certificate.decoded().subjectPublicKeyInfo())) {
        fail(capi::CRYPT_E_EXISTS);
    }
    const std::string replaced = toHex(existing.thumbprint());
    // The new file stands before the old one goes: a crash between leaves both, never none.
    auto added = addNew(certificate, properties);
    static_cast<void>(files::removeDurably(fileOf(replaced)));
    list_.erase(replaced);
    settle();
    return added;
}

void SystemStore::remove(const Certificate& certificate) {
    const std::lock_guard lock(mutex_);
    if (!files::stampOf(directory_)) {
        fail(capi::CRYPT_E_NOT_FOUND);
    }
    const files::Lock folderLock = lockFolder();
    const std::string thumbprint = toHex(certificate.thumbprint());
    const bool removed = files::removeDurably(fileOf(thumbprint));
    list_.erase(thumbprint);
    settle();
    if (!removed) {
        fail(capi::CRYPT_E_NOT_FOUND);
    }
}

void SystemStore::change(Certificate& certificate, const std::function<void(Properties&)>& change) {
    const std::lock_guard lock(mutex_);
    if (!files::stampOf(directory_)) {
        return certificate.changeProperties(change);
    }
    const files::Lock folderLock = lockFolder();
    StoreEntry* const entry = list_.find(toHex(certificate.thumbprint()));
    const auto held = entry == nullptr ? nullptr : load(*entry);
    if (entry != nullptr && entry->unread()) {
        fail(entry->trouble); // what it holds would be lost
    }
    if (!held) {
        return certificate.changeProperties(change);
    }
    Properties changed = held->properties();
    change(changed);
    write(held, changed);
    if (held.get() != &certificate) {
        certificate.setProperties(std::move(changed)); // a context from before the file was deleted and added again
    }
}

fs::path SystemStore::fileOf(const std::string& thumbprint) const {
    return directory_ / (thumbprint + std::string(certificateSuffix));
}

bool SystemStore::listIsFresh(const std::optional<files::Stamp>& stamp) const {
    return listed_ && !unsettled_ && stamp == stamp_ && std::chrono::steady_clock::now() - listedAt_ < listLife;
}

void SystemStore::refresh() {
    const auto stamp = files::stampOf(directory_);
    if (listIsFresh(stamp)) {
        return;
    }
    listed_ = false;
    unsettled_ = stamp && files::mayChangeUnseen(*stamp);
    takeNames(files::names(directory_));
    stamp_ = stamp;
    listedAt_ = std::chrono::steady_clock::now();
    listed_ = true;
}

void SystemStore::takeNames(const std::vector<std::string>& names) {
    std::vector<std::string> thumbprints;
    std::size_t unknown = 0;
    bool hasIndex = false;
    others_.clear();
    temporaries_.clear();
    for (const std::string& name : names) {
        if (name.starts_with('.')) {
            hasIndex = hasIndex || name == indexFileName;
            if (files::isTemporary(name)) {
                temporaries_.push_back(name);
            }
        } else if (name.ends_with(certificateSuffix) && isThumbprint(stemOf(name))) {
            thumbprints.push_back(stemOf(name));
            unknown += list_.knows(thumbprints.back()) ? 0U : 1U;
        } else {
            others_.push_back(name);
        }
    }
    list_.setNames(thumbprints, hasIndex && unknown > mostUnindexed ? readStoreIndex(directory_) : StoreIndex{});
}

/// The lock that every change of the folder holds, with the folder's state as it is then.
files::Lock SystemStore::lockFolder() {
    files::Lock lock(directory_);
    refresh();
    for (const std::string& name : temporaries_) {
        std::error_code ignored; // it is in nobody's way
        fs::remove(directory_ / name, ignored);
    }
    temporaries_.clear();
    return lock;
}

/// After a change under the lock: the list is up to date as it is.
void SystemStore::settle() {
    const auto before = stamp_;
    stamp_ = before ? files::advanceStamp(directory_, *before) : files::stampOf(directory_);
    unsettled_ = !stamp_ || stamp_ == before;
}

/// The certificate of an entry, as its file is now; null when the file is gone or not usable.
std::shared_ptr<Certificate> SystemStore::load(StoreEntry& entry) {
    const fs::path file = fileOf(entry.thumbprint);
    try {
        const auto stamp = files::stampOf(file);
        const bool same = stamp && stamp == entry.stamp && !entry.unread();
        entry.stamp = stamp;
        if (!same) {
            entry.trouble = 0;
            if (stamp) {
                read(entry);
            } else if (isLink(file)) { // to nowhere
                entry.trouble = capi::ERROR_FILE_NOT_FOUND;
            }
        }
    } catch (const ApiError& error) {
        entry.trouble = error.code();
    }
    if (entry.trouble != 0) {
        noteSkipped(file, entry.trouble);
    }
    auto certificate = entry.present();
    if (certificate && !entry.keys) {
        list_.setKeys(entry, searchKeysOf(*certificate));
    }
    return certificate;
}

/// Reads the file of an entry. ApiError when it cannot be read, or (ERROR_INVALID_DATA) is not what its name says.
void SystemStore::read(StoreEntry& entry) {
    const auto contents = files::read(fileOf(entry.thumbprint));
    if (!contents) {
        entry.stamp.reset();
        return;
    }
    auto file = parseStoreFile(text(*contents));
    if (!file) {
        fail(capi::ERROR_INVALID_DATA);
    }
    std::shared_ptr<Certificate> read;
    try {
        read = std::make_shared<Certificate>(file->der, file->properties, entry.ordinal);
    } catch (const ApiError&) {
        fail(capi::ERROR_INVALID_DATA);
    }
    if (toHex(read->thumbprint()) != entry.thumbprint) {
        fail(capi::ERROR_INVALID_DATA);
    }
    list_.setKeys(entry, searchKeysOf(*read));
    if (entry.certificate) {
        entry.certificate->setProperties(std::move(file->properties));
    } else {
        entry.certificate = std::move(read);
    }
}

/// Writes the index when too many certificates are not in it and nobody else changes the folder just now.
void SystemStore::keepIndex() {
    if (indexRefused_ || list_.unindexed() <= mostUnindexed + list_.size() / unindexedPart) {
        return;
    }
    try {
        const auto lock = files::Lock::tryTake(directory_);
        if (lock) {
            writeIndex();
        }
    } catch (const ApiError&) {
        indexRefused_ = true;
    }
}

/// To be called with the folder's lock held. Only the folder's owner writes here: a file of another user would stay.
void SystemStore::writeIndex() {
    struct stat status {};
    if (indexRefused_ || ::stat(directory_.c_str(), &status) != 0 || status.st_uid != ::geteuid()) {
        indexRefused_ = true;
        return;
    }
    try {
        files::writeAtomically(directory_ / indexFileName, formatStoreIndex(list_.index()));
        list_.setIndexed();
    } catch (const ApiError&) { // a full disk, a read-only folder: the certificates' own files serve
        indexRefused_ = true;
    }
}

void SystemStore::write(const std::shared_ptr<Certificate>& certificate, const Properties& properties) {
    const std::string thumbprint = toHex(certificate->thumbprint());
    const fs::path file = fileOf(thumbprint);
    files::writeAtomically(file, octets(formatStoreFile(*certificate, properties)));
    certificate->setProperties(properties);
    StoreEntry& entry = list_.at(thumbprint);
    entry.certificate = certificate;
    entry.trouble = 0;
    entry.stamp = files::stampOf(file);
    list_.setKeys(entry, searchKeysOf(*certificate));
    if (list_.unindexed() > mostUnindexed + list_.size() / unindexedPart) {
        writeIndex();
    }
    settle();
}

std::shared_ptr<Certificate> SystemStore::addNew(const Certificate& certificate, const Properties& properties) {
    const StoreEntry& entry = list_.at(toHex(certificate.thumbprint()));
    const auto held = entry.present();
    const auto element =
        held ? held : std::make_shared<Certificate>(certificate.encoded(), Properties{}, entry.ordinal);
    write(element, properties);
    return element;
}

} // namespace klunortredi::csp
