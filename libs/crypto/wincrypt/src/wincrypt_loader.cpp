#include "wincrypt_loader.hpp"

#include "orvik/plugin/log.hpp"

#include <dlfcn.h>

#include <string_view>

namespace orvik::plugin::wincrypt {

void* loadLibrary(const boost::filesystem::path& path) {
    return dlopen(path.c_str(), RTLD_LAZY);
}

void freeLibrary(void* handle) {
    if (handle != nullptr) {
        dlclose(handle);
    }
}

void* procAddress(void* handle, const std::string& name) {
    return dlsym(handle, name.c_str());
}

const char* lastError() {
    return dlerror(); // NOLINT(concurrency-mt-unsafe): glibc keeps it per thread
}

namespace internal {
namespace {

/// The pointer whose every resolution is logged: service enumeration is where a broken installation shows first.
constexpr std::string_view loggedPointer = "cryptEnumProvidersFunction_";

/// The first library that has either spelling wins; within one library the unsuffixed spelling does.
void* findSymbol(const std::vector<void*>& libraries, const std::string& name) {
    for (void* library : libraries) {
        for (const std::string& spelling : {name, name + "A"}) {
            if (void* address = procAddress(library, spelling)) {
                return address;
            }
        }
    }
    if (!libraries.empty() && lastError() != nullptr) {
        log::info("0, function=" + name);
    }
    return nullptr;
}

} // namespace
} // namespace internal

template <class FnPtr>
FnPtr getFunction(const std::vector<void*>& libraries, const std::string& name) {
    return reinterpret_cast<FnPtr>(internal::findSymbol(libraries, name));
}

template <class FnPtr>
FnPtr WincryptLoader::resolve(std::atomic<FnPtr>& cached, const char* pointer, const char* symbol) const {
    if (FnPtr function = cached.load(std::memory_order_acquire)) {
        return function;
    }
    const auto function = getFunction<FnPtr>(libraries_, symbol);
    if (function != nullptr) {
        cached.store(function, std::memory_order_release);
    }
    if (pointer == internal::loggedPointer) {
        log::info(std::string(pointer) + " =" + (function != nullptr ? "1" : "0"));
    }
    return function;
}

WincryptLoader::WincryptLoader(const std::vector<boost::filesystem::path>& paths) {
    libraries_.reserve(paths.size());
    for (const auto& path : paths) {
        if (void* library = loadLibrary(path)) {
            libraries_.push_back(library);
        }
    }
}

WincryptLoader::~WincryptLoader() {
    for (void* library : libraries_) {
        freeLibrary(library);
    }
}

#define WINCRYPT_MEMBER(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                      \
    result WincryptLoader::member parameters WINCRYPT_##qualifier {                                                    \
        const auto function = resolve(pointer##Function_, #pointer "Function_", symbol);                               \
        return function != nullptr ? function arguments : absent<result>();                                            \
    }
KLUNORTREDI_ENTRY_POINTS(WINCRYPT_MEMBER)
#undef WINCRYPT_MEMBER

} // namespace orvik::plugin::wincrypt
