#include "orvik/plugin/path_registry.hpp"

#include "configuration.hpp"
#include "embedded_service.hpp"
#include "service_places.hpp"

#include <boost/filesystem/operations.hpp>
#include <boost/optional.hpp>

#include <cstdlib>
#include <mutex>
#include <span>

namespace orvik::plugin {

namespace {

namespace fs = boost::filesystem;

/// A slot's names in the environment and in the configuration file, and its usual places.
struct Slot {
    const char* variable;
    const char* key;
    std::span<const char* const> places;
};

constexpr Slot vipNet = {"KLUNORTREDI_VIPNET", "vipnet", internal::vipNetPlaces};
constexpr Slot kernel32 = {"KLUNORTREDI_KERNEL32", "kernel32", internal::kernel32Places};
constexpr Slot cryptoPro = {"KLUNORTREDI_CRYPTOPRO", "cryptopro", internal::cryptoProPlaces};
constexpr Slot cryptoApi = {"KLUNORTREDI_CRYPTOAPI", "cryptoapi", internal::cryptoApiPlaces};
constexpr Slot cryptoApi2 = {"KLUNORTREDI_CRYPTOAPI2", "cryptoapi2", internal::cryptoApi2Places};

constexpr const char* serviceVariable = "KLUNORTREDI_SERVICE";

std::mutex serviceMutex;
fs::path chosenService; // guarded by serviceMutex

boost::optional<fs::path> environment(const char* variable) {
    const char* value = ::secure_getenv(variable);
    return value == nullptr ? boost::optional<fs::path>() : fs::path(value);
}

/// The one library for the whole process; empty when none is asked for.
fs::path service() {
    {
        const std::lock_guard lock(serviceMutex);
        if (!chosenService.empty()) {
            return chosenService;
        }
    }
    return environment(serviceVariable).value_or(fs::path());
}

fs::path firstExisting(std::span<const char* const> places) {
    for (const char* place : places) {
        boost::system::error_code ignored;
        if (fs::exists(place, ignored)) {
            return place;
        }
    }
    return {};
}

/// What the user says of the slot; an empty path says "none".
boost::optional<fs::path> setting(const Slot& slot) {
    auto set = environment(slot.variable);
    return set ? set : internal::configuredPath(slot.key);
}

/// The slot's library, unless one service stands for all.
fs::path find(const Slot& slot) {
    if (!service().empty()) {
        return {};
    }
    const auto set = setting(slot);
    return set ? *set : firstExisting(slot.places);
}

} // namespace

fs::path PathRegistry::vipNetResourceFile() {
    return find(vipNet);
}

fs::path PathRegistry::kernel32ResourceFile() {
    return find(kernel32);
}

fs::path PathRegistry::cryptoProResourceFile() {
    if (auto chosen = service(); !chosen.empty()) {
        return chosen;
    }
    if (const auto set = setting(cryptoPro)) {
        return *set;
    }
    auto found = firstExisting(cryptoPro.places);
    return found.empty() ? internal::embeddedService() : found;
}

fs::path PathRegistry::cryptoApiResourceFile() {
    return find(cryptoApi);
}

fs::path PathRegistry::cryptoApi2ResourceFile() {
    return find(cryptoApi2);
}

void PathRegistry::setService(const boost::filesystem::path& library) {
    const std::lock_guard lock(serviceMutex);
    chosenService = library;
}

} // namespace orvik::plugin
