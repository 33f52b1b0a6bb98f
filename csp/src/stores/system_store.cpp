#include "stores/system_store.hpp"

#include "core/files.hpp"
#include "core/hex.hpp"
#include "core/home.hpp"
#include "core/immortal.hpp"
#include "crypto/key_pair.hpp"
#include "stores/crl_files.hpp"
#include "stores/store_file.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <set>

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

/// Names of the files in a folder that end in `suffix`, in order. A folder that is not there has none.
std::set<std::string> filesIn(const fs::path& directory, std::string_view suffix) {
    std::set<std::string> names;
    for (const fs::path& entry : files::entries(directory)) {
        std::string name = entry.filename().string();
        if (name.ends_with(suffix) && !name.starts_with('.')) {
            names.insert(std::move(name));
        }
    }
    return names;
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
    for (const auto& [thumbprint, held] : held_) {
        if (held.certificate) {
            list.push_back(held.certificate);
        }
    }
    std::ranges::sort(list, {}, &Certificate::ordinal);
    return list;
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

std::vector<std::string> SystemStore::unreadable() {
    const std::lock_guard lock(mutex_);
    refresh();
    std::vector<std::string> names;
    if (!exists() && fs::is_symlink(fs::symlink_status(directory_))) {
        names.push_back(directory_.string());
    }
    for (const fs::path& entry : files::entries(directory_)) {
        const std::string name = entry.filename().string();
        if (name.starts_with('.') || name.ends_with(crlFileSuffix)) {
            continue;
        }
        const auto held = name.ends_with(certificateSuffix)
                              ? held_.find(name.substr(0, name.size() - certificateSuffix.size()))
                              : held_.end();
        std::error_code gone;
        if ((held == held_.end() || !held->second.certificate) && fs::exists(fs::symlink_status(entry, gone))) {
            names.push_back(entry.string());
        }
    }
    return names;
}

std::shared_ptr<Certificate> SystemStore::add(const Certificate& certificate, AddRule rule) {
    const std::lock_guard lock(mutex_);
    files::makeDirectories(directory_);
    const files::Lock folderLock(directory_);
    files::removeStaleTemporaries(directory_);
    refresh();
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

/// The certificate itself, else one of the same issuer and serial number, else null.
std::shared_ptr<Certificate> SystemStore::sameIn(const Certificate& certificate) const {
    const auto itself = held_.find(toHex(certificate.thumbprint()));
    if (itself != held_.end() && itself->second.certificate) {
        return itself->second.certificate;
    }
    const auto same = std::ranges::find_if(held_, [&](const auto& item) {
        return item.second.certificate && sameIssuerAndSerial(item.second.certificate->info(), certificate.info());
    });
    return same == held_.end() ? nullptr : same->second.certificate;
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
    const fs::path file = fileOf(existing);
    // The new file stands before the old one goes: a crash between leaves both, never none.
    auto added = addNew(certificate, properties);
    static_cast<void>(files::removeDurably(file));
    held_.erase(replaced);
    return added;
}

void SystemStore::remove(const Certificate& certificate) {
    const std::lock_guard lock(mutex_);
    if (!exists()) {
        fail(capi::CRYPT_E_NOT_FOUND);
    }
    const files::Lock folderLock(directory_);
    files::removeStaleTemporaries(directory_);
    const bool removed = files::removeDurably(fileOf(certificate));
    held_.erase(toHex(certificate.thumbprint()));
    if (!removed) {
        fail(capi::CRYPT_E_NOT_FOUND);
    }
}

void SystemStore::change(Certificate& certificate, const std::function<void(Properties&)>& change) {
    const std::lock_guard lock(mutex_);
    if (!exists()) {
        return certificate.changeProperties(change);
    }
    const files::Lock folderLock(directory_);
    files::removeStaleTemporaries(directory_);
    refresh();
    const auto held = held_.find(toHex(certificate.thumbprint()));
    if (held == held_.end() || !held->second.certificate) {
        return certificate.changeProperties(change);
    }
    Properties changed = held->second.certificate->properties();
    change(changed);
    write(held->second.certificate, changed);
    if (held->second.certificate.get() != &certificate) {
        certificate.setProperties(std::move(changed)); // a context from before the file was deleted and added again
    }
}

fs::path SystemStore::fileOf(const Certificate& certificate) const {
    return directory_ / (toHex(certificate.thumbprint()) + std::string(certificateSuffix));
}

SystemStore::Stamp SystemStore::stampOf(const fs::path& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) {
        return {};
    }
    return {status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

void SystemStore::refresh() {
    const std::set<std::string> names = filesIn(directory_, certificateSuffix);
    std::erase_if(held_,
                  [&](const auto& item) { return !names.contains(item.first + std::string(certificateSuffix)); });
    for (const std::string& name : names) {
        const Stamp stamp = stampOf(directory_ / name);
        const std::string thumbprint = name.substr(0, name.size() - certificateSuffix.size());
        Held& held = held_[thumbprint];
        if (held.stamp != stamp) {
            load(thumbprint, stamp, held);
        }
    }
}

void SystemStore::load(const std::string& thumbprint, const Stamp& stamp, Held& held) const {
    held.stamp = stamp;
    std::optional<StoreFile> file;
    std::shared_ptr<Certificate> read;
    try {
        const auto contents = files::read(directory_ / (thumbprint + std::string(certificateSuffix)));
        file = contents ? parseStoreFile(text(*contents)) : std::nullopt;
        read = file ? std::make_shared<Certificate>(file->der, file->properties) : nullptr;
    } catch (const ApiError&) {
        read = nullptr; // unreadable or no certificate: passed over, the others still serve
    }
    if (!read || toHex(read->thumbprint()) != thumbprint) {
        held.certificate = nullptr;
    } else if (held.certificate) {
        held.certificate->setProperties(std::move(file->properties));
    } else {
        held.certificate = std::move(read);
    }
}

void SystemStore::write(const std::shared_ptr<Certificate>& certificate, const Properties& properties) {
    const fs::path file = fileOf(*certificate);
    files::writeAtomically(file, octets(formatStoreFile(*certificate, properties)));
    certificate->setProperties(properties);
    held_[toHex(certificate->thumbprint())] = {stampOf(file), certificate};
}

std::shared_ptr<Certificate> SystemStore::addNew(const Certificate& certificate, const Properties& properties) {
    const auto held = held_.find(toHex(certificate.thumbprint()));
    const auto element = held != held_.end() && held->second.certificate
                             ? held->second.certificate
                             : std::make_shared<Certificate>(certificate.encoded());
    write(element, properties);
    return element;
}

} // namespace klunortredi::csp
