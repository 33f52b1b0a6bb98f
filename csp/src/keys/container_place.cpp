#include "keys/container_place.hpp"

#include "core/hex.hpp"
#include "core/home.hpp"
#include "crypto/random.hpp"

#include <array>

namespace klunortredi::csp {

namespace {

namespace fs = std::filesystem;

// A leading dot: no container's directory starts with one.
constexpr std::string_view draftPrefix = ".new-";
constexpr std::string_view gravePrefix = ".del-";

void sweep(const fs::path& directory) {
    try {
        // Whoever makes a container holds the lock on its draft.
        const auto lock = files::Lock::tryTake(directory);
        std::error_code ignored;
        if (lock) {
            fs::remove_all(directory, ignored);
        }
    } catch (const ApiError&) { // gone meanwhile
    }
}

} // namespace

fs::path containersDirectory() {
    return dataDirectory() / "containers";
}

fs::path containerDirectory(const ContainerId& id) {
    return containersDirectory() / directoryName(id);
}

fs::path draftDirectory(const ContainerId& id) {
    return containersDirectory() / (std::string(draftPrefix) + directoryName(id));
}

fs::path newGrave() {
    std::array<std::uint8_t, 8> unique{};
    fillRandom(unique);
    return containersDirectory() / (std::string(gravePrefix) + toHex(unique));
}

files::Lock lockNames() {
    return files::Lock(containersDirectory());
}

void sweepContainers() {
    for (const fs::path& entry : files::entries(containersDirectory())) {
        const std::string name = entry.filename().string();
        if (name.starts_with(draftPrefix) || name.starts_with(gravePrefix)) {
            sweep(entry);
        }
    }
}

} // namespace klunortredi::csp
