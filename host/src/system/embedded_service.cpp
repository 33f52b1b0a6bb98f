#include "embedded_service.hpp"

#include <boost/filesystem/operations.hpp>

#include <array>
#include <dlfcn.h>
#include <link.h>

namespace orvik::plugin::internal {

namespace {

namespace fs = boost::filesystem;

/// Beside this library or the program that holds it (a build tree), then the install layout, seen from the library and
/// from a program.
constexpr std::array places = {
    "libklunortredi_csp.so",
    "../lib/libklunortredi_csp.so",
    "klunortredi/libklunortredi_csp.so",
    KLUNORTREDI_LIBRARIES_FROM_PROGRAMS "/klunortredi/libklunortredi_csp.so",
    "../lib/klunortredi/libklunortredi_csp.so",
};

/// The file that holds this function. Of a program the loader knows only what it was called, which may be a name in the
/// current folder of someone else.
fs::path ownFile() {
    Dl_info self{};
    void* loaded = nullptr;
    if (dladdr1(places.data(), &self, &loaded, RTLD_DL_LINKMAP) == 0 || loaded == nullptr) {
        return {};
    }
    const char* const name = static_cast<const link_map*>(loaded)->l_name;
    return name == nullptr || *name == '\0' ? "/proc/self/exe" : name;
}

} // namespace

fs::path embeddedService() {
    const fs::path file = ownFile();
    if (file.empty()) {
        return {};
    }
    boost::system::error_code failed;
    const auto folder = fs::canonical(file, failed).parent_path();
    if (failed) {
        return {};
    }
    for (const char* place : places) {
        auto service = fs::canonical(folder / place, failed);
        if (!failed) {
            return service;
        }
    }
    return {};
}

} // namespace orvik::plugin::internal
