#include "keys/container.hpp"

#include "core/error.hpp"
#include "keys/container_place.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace klunortredi::csp {

namespace {

namespace fs = std::filesystem;

constexpr mode_t directoryMode = 0700;

/// Creates and locks the draft's directory. Call with the lock on names held: a sweeper takes a draft that is not
/// locked yet for one whose maker died.
files::Lock reserve(const fs::path& draft) {
    if (mkdir(draft.c_str(), directoryMode) != 0) {
        fail(errno == EEXIST ? capi::NTE_EXISTS : files::errorCode(errno));
    }
    return files::Lock(draft);
}

/// Renames a container's directory within its parent and synchronises the parent. When that fails, the old name stands.
void moveDirectory(const fs::path& from, const fs::path& to) {
    const files::Directory parent(to.parent_path());
    if (std::rename(from.c_str(), to.c_str()) != 0) {
        fail(errno == ENOTEMPTY || errno == EEXIST ? capi::NTE_EXISTS : files::errorCode(errno));
    }
    if (!parent.sync()) {
        const DWORD code = files::errorCode(errno);
        static_cast<void>(std::rename(to.c_str(), from.c_str()));
        fail(code);
    }
}

/// A stray file is no container: opening a pipe would wait for ever. What cannot be looked at may be one.
bool mayBeContainer(const fs::path& entry) {
    std::error_code ignored;
    const fs::file_type type = fs::status(entry, ignored).type();
    return type == fs::file_type::directory || type == fs::file_type::none || type == fs::file_type::unknown;
}

/// Only the directory `wanted`, when one is given.
void remove(const fs::path& directory, const files::Directory* wanted) {
    try {
        const files::Lock lock(directory);
        if (wanted != nullptr && !wanted->isAt(directory)) {
            fail(capi::NTE_BAD_KEYSET);
        }
        const fs::path grave = newGrave();
        moveDirectory(directory, grave);
        std::error_code error;
        fs::remove_all(grave, error);
        if (error) { // a key that is reported as deleted must not stay under another name
            static_cast<void>(std::rename(grave.c_str(), directory.c_str()));
            fail(files::errorCode(error.value()));
        }
    } catch (const ApiError& e) {
        fail(e.code() == capi::ERROR_FILE_NOT_FOUND ? capi::NTE_BAD_KEYSET : e.code());
    }
}

} // namespace

NewContainer::NewContainer(const ContainerId& id) : container_(draftDirectory(id), {id, false, {}}) {
    checkNewName(id);
    files::makeDirectories(containersDirectory());
    const files::Lock names = lockNames();
    sweepContainers();
    std::error_code error;
    if (fs::exists(containerDirectory(id), error)) {
        fail(capi::NTE_EXISTS);
    }
    if (error) {
        fail(files::errorCode(error.value()));
    }
    reservation_ = reserve(container_.directory_);
    container_.reserved_ = true;
}

NewContainer::~NewContainer() {
    if (reservation_) {
        std::error_code ignored;
        fs::remove_all(container_.directory_, ignored);
    }
}

Container NewContainer::commit() {
    if (container_.keys().empty()) {
        fail(capi::NTE_NO_KEY);
    }
    const fs::path place = container_.directory_.parent_path() / directoryName(container_.id());
    try {
        const files::Lock names = lockNames();
        made_.emplace(container_.directory_);
        moveDirectory(container_.directory_, place);
    } catch (...) {
        made_.reset();
        container_.meta_.keys.clear(); // nobody may take the key pair for one that is on disk
        throw;
    }
    reservation_.reset();
    Container placed(place, container_.meta_);
    placed.opened_ = container_.opened_;
    return placed;
}

std::vector<std::string> listContainers(DWORD providerType) {
    std::vector<std::string> names;
    for (const fs::path& entry : files::entries(containersDirectory())) {
        auto name = nameOfDirectory(entry.filename().string(), providerType);
        if (name && mayBeContainer(entry)) {
            names.push_back(*std::move(name));
        }
    }
    std::ranges::sort(names);
    return names;
}

void NewContainer::undo() {
    if (!made_) {
        fail(capi::NTE_BAD_KEYSET);
    }
    remove(container_.directory_.parent_path() / directoryName(container_.id()), &*made_);
}

void deleteContainer(const ContainerId& id) {
    remove(containerDirectory(id), nullptr);
}

} // namespace klunortredi::csp
