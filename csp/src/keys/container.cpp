#include "keys/container.hpp"

#include "core/error.hpp"
#include "core/trusted.hpp"
#include "crypto/digest.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/public_key_info.hpp"
#include "crypto/signature.hpp"
#include "keys/container_place.hpp"
#include "keys/key_file.hpp"
#include "x509/cert_info.hpp"

#include <algorithm>
#include <charconv>

namespace klunortredi::csp {

namespace {

namespace fs = std::filesystem;

Bytes hashOfFile(ByteView contents) {
    return Digest::of(*findDigest(capi::CALG_SHA_256), contents);
}

/// What it means that a file of a container is not there.
DWORD missing(const fs::path& directory) {
    std::error_code error;
    if (fs::exists(directory, error)) {
        return capi::NTE_KEYSET_ENTRY_BAD;
    }
    return error ? files::errorCode(error.value()) : capi::NTE_BAD_KEYSET;
}

std::optional<Bytes> readTrusted(const fs::path& file, std::size_t limit = files::readLimit) {
    files::requireTrusted(file);
    return files::read(file, limit);
}

ContainerMeta readMeta(const fs::path& directory) {
    const auto text = readTrusted(directory / metaFileName);
    if (!text) {
        fail(missing(directory));
    }
    return decodeMeta(*text);
}

bool hasKey(const ContainerMeta& meta, const KeyEntry& wanted) {
    return std::ranges::any_of(meta.keys, [&wanted](const KeyEntry& key) {
        return key.spec == wanted.spec && key.publicKeyInfo == wanted.publicKeyInfo;
    });
}

/// Whether every key pair has the attributes that it had.
bool sameAttributes(const ContainerMeta& before, const ContainerMeta& now) {
    return std::ranges::equal(before.keys, now.keys, [&](const KeyEntry& a, const KeyEntry& b) {
        return attributeHash(before, a) == attributeHash(now, b);
    });
}

/// Throws NTE_BAD_DATA unless `certificate` is one, of the key `publicKey`.
void checkCertificate(ByteView certificate, ByteView publicKey) {
    Bytes info;
    try {
        const CertInfo decoded(certificate);
        info.assign(decoded.subjectPublicKeyInfo().begin(), decoded.subjectPublicKeyInfo().end());
    } catch (const ApiError&) {
        fail(capi::NTE_BAD_DATA);
    }
    if (!samePublicKey(info, publicKey)) {
        fail(capi::NTE_BAD_PUBLIC_KEY);
    }
}

} // namespace

Container Container::open(const ContainerId& id) {
    const fs::path directory = containerDirectory(id);
    files::requireTrusted(directory.parent_path());
    files::requireTrusted(directory);
    ContainerMeta meta = readMeta(directory);
    if (meta.id != id) {
        fail(capi::NTE_KEYSET_ENTRY_BAD); // copied by hand under another name
    }
    return {directory, std::move(meta)};
}

const KeyEntry& Container::key(DWORD spec) const {
    const auto found = std::ranges::find(meta_.keys, spec, &KeyEntry::spec);
    if (found == meta_.keys.end()) {
        fail(capi::NTE_NO_KEY);
    }
    return *found;
}

std::optional<files::Lock> Container::lock() {
    if (reserved_) {
        return std::nullopt;
    }
    try {
        files::Lock held(directory_);
        ContainerMeta now = readMeta(directory_);
        if (!std::ranges::all_of(meta_.keys, [&now](const KeyEntry& key) { return hasKey(now, key); })) {
            fail(capi::NTE_BAD_KEYSET); // another one of the name: this one was deleted
        }
        meta_ = std::move(now);
        files::removeStaleTemporaries(directory_);
        return held;
    } catch (const ApiError& e) {
        fail(e.code() == capi::ERROR_FILE_NOT_FOUND ? capi::NTE_BAD_KEYSET : e.code());
    }
}

PinTries Container::tries() const {
    constexpr std::size_t longest = 32;
    const auto text = readTrusted(directory_ / triesFileName, longest);
    if (!text) {
        fail(missing(directory_));
    }
    const std::string digits(text->begin(), text->end());
    const char* const end = digits.data() + digits.size();
    PinTries tries;
    const auto [next, error] = std::from_chars(digits.data(), end, tries.failed);
    if (error != std::errc{}) {
        fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
    if (next != end && *next == ' ' && std::from_chars(next + 1, end, tries.unjudged).ec != std::errc{}) {
        fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
    return {std::min(tries.failed, pinTryLimit), std::min(tries.unjudged, unjudgedTryLimit)};
}

void Container::writeTries(PinTries tries) const {
    const std::string text = std::to_string(tries.failed) + ' ' + std::to_string(tries.unjudged) + '\n';
    files::writeAtomically(directory_ / triesFileName, Bytes(text.begin(), text.end()));
}

DWORD Container::triesRemaining() const {
    const PinTries now = tries();
    if (now.unjudged >= unjudgedTryLimit && !files::Presence::any(directory_)) {
        return 0;
    }
    return triesLeft(pinTryLimit - now.failed);
}

void Container::resetTries() {
    const auto held = lock();
    writeTries({});
}

/// What changePin compares with: a change by somebody else raises the generations.
void Container::rememberOpened() {
    opened_.clear();
    for (const KeyEntry& entry : meta_.keys) {
        opened_.emplace(entry.spec, entry.generation);
    }
}

Bytes Container::readKeyFile(const KeyEntry& key) const {
    auto file = readTrusted(directory_ / keyFileName(key));
    if (!file || hashOfFile(*file) != key.fileHash) {
        fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
    const Bytes binding = bindingOf(*file);
    if (!binding.empty() && binding != attributeHash(meta_, key)) {
        fail(capi::NTE_KEYSET_ENTRY_BAD); // somebody edited the description
    }
    return *std::move(file);
}

bool Container::isAsOpened() const {
    return std::ranges::all_of(meta_.keys, [this](const KeyEntry& entry) {
        const auto opened = opened_.find(entry.spec);
        return opened != opened_.end() && opened->second == entry.generation;
    });
}

KeyEntry Container::writeKey(KeyEntry entry, ByteView file) const {
    entry.fileHash = hashOfFile(file);
    files::writeAtomically(directory_ / keyFileName(entry), file);
    return entry;
}

bool Container::replaceMeta(ContainerMeta next) {
    const bool lasts = files::replaceAtomically(directory_ / metaFileName, encodeMeta(next));
    meta_ = std::move(next);
    if (lasts) { // else the old description may come back, and wants its key files
        removeUnused();
    }
    return lasts;
}

/// Key files that the description does not name: of an earlier PIN, or of a change that did not come to its end.
void Container::removeUnused() const {
    files::removeFiles(directory_, [this](const fs::path& file) {
        const auto named = [&](const KeyEntry& key) { return file.filename() == keyFileName(key); };
        return file.extension() == keyFileSuffix && std::ranges::none_of(meta_.keys, named);
    });
}

void Container::changePin(const UnlockedKeys& keys, std::string_view pin) {
    ContainerMeta next = meta_;
    next.wantsPin = !pin.empty();
    std::map<DWORD, Bytes> encrypted; // before the lock: deriving takes long
    for (const auto& [spec, key] : keys) {
        encrypted.emplace(spec, encryptKey(key.get(), pin, attributeHash(next, this->key(spec))));
    }
    const ContainerMeta opened = meta_;
    const auto held = lock();
    if (!isAsOpened() || !sameAttributes(opened, meta_)) {
        fail(capi::NTE_BAD_KEY_STATE); // somebody changed the PIN since
    }
    next = meta_;
    next.wantsPin = !pin.empty();
    try {
        for (KeyEntry& entry : next.keys) {
            const auto key = keys.find(entry.spec);
            if (key == keys.end() || !samePublicKey(publicKeyInfo(key->second.get()), entry.publicKeyInfo)) {
                fail(capi::NTE_BAD_KEY_STATE);
            }
            ++entry.generation;
            entry = writeKey(entry, encrypted.at(entry.spec));
        }
        writeTries({});                                  // before the PIN is another: a failure must leave the old one
        static_cast<void>(replaceMeta(std::move(next))); // either PIN opens what a power cut leaves
        rememberOpened();
    } catch (...) {
        removeUnused();
        throw;
    }
}

bool Container::has(DWORD spec) const {
    return std::ranges::find(meta_.keys, spec, &KeyEntry::spec) != meta_.keys.end();
}

void Container::addKey(DWORD spec, EVP_PKEY* key, bool exportable, std::string_view pin) {
    {
        const auto held = lock();
        if (has(spec)) {
            fail(capi::NTE_EXISTS);
        }
    }
    const KeyEntry entry{spec, 1, {}, publicKeyInfo(key), exportable};
    const Bytes binding = attributeHash({meta_.id, !pin.empty(), {}}, entry);
    const Bytes file = encryptKey(key, pin, binding); // before the lock: deriving takes long
    while (true) {
        if (!meta_.keys.empty()) {
            unlock(pin); // another process may have changed it since: one PIN opens all key pairs
        }
        const auto held = lock();
        if (has(spec)) {
            fail(capi::NTE_EXISTS);
        }
        if (isAsOpened()) {
            return store(entry, file, !pin.empty());
        }
    }
}

void Container::store(const KeyEntry& entry, ByteView file, bool wantsPin) {
    const ContainerMeta before = meta_;
    ContainerMeta next = before;
    if (next.keys.empty()) {
        next.wantsPin = wantsPin;
        writeTries({});
    }
    bool lasts = false;
    try {
        next.keys.push_back(writeKey(entry, file));
        lasts = replaceMeta(std::move(next));
    } catch (...) {
        removeUnused();
        throw;
    }
    if (!lasts) { // the new key file stays: a power cut may leave the description that names it
        static_cast<void>(files::replaceAtomically(directory_ / metaFileName, encodeMeta(before)));
        meta_ = before;
        fail(capi::ERROR_WRITE_FAULT);
    }
    rememberOpened();
}

std::optional<Bytes> Container::certificate(DWORD spec) const {
    return files::read(directory_ / certificateFileName(spec));
}

void Container::setCertificate(DWORD spec, ByteView der) {
    const auto held = lock();
    checkCertificate(der, key(spec).publicKeyInfo);
    files::writeAtomically(directory_ / certificateFileName(spec), der);
}

std::vector<std::string> Container::damagedFiles() {
    const auto held = lock(); // a change half-way is no damage
    std::vector<std::string> damaged;
    const auto inspect = [&damaged](const std::string& file, const auto& read) {
        try {
            read();
        } catch (const ApiError& error) {
            // What the machine lacks, or what cannot be read now, is not damaged.
            if (error.code() == capi::NTE_PROV_TYPE_NOT_DEF || files::isAccessError(error.code())) {
                throw;
            }
            damaged.push_back(file);
        }
    };
    inspect(triesFileName, [&] { tries(); });
    for (const KeyEntry& entry : meta_.keys) {
        inspect(keyFileName(entry), [&] { readKeyFile(entry); });
        inspect(metaFileName, [&] { publicKeyFromInfo(entry.publicKeyInfo); });
        inspect(certificateFileName(entry.spec), [&] {
            if (const auto der = certificate(entry.spec)) {
                checkCertificate(*der, entry.publicKeyInfo);
            }
        });
    }
    if (meta_.keys.empty()) {
        damaged.emplace_back(metaFileName);
    }
    return damaged;
}

} // namespace klunortredi::csp
