#pragma once

/// The opened libraries of one service, and its entry points as member functions.

#include "capi/entry_points.h"

#include <boost/filesystem/path.hpp>

#include <atomic>
#include <string>
#include <type_traits>
#include <vector>

namespace orvik::plugin::wincrypt {

/// dlopen with RTLD_LAZY; null when the library does not open.
void* loadLibrary(const boost::filesystem::path& path);
/// dlclose; nothing for null.
void freeLibrary(void* handle);
/// dlsym; null when the library has no such symbol.
void* procAddress(void* handle, const std::string& name);
/// dlerror: the calling thread's last failure of the three above, once.
const char* lastError();

/// What an entry point that cannot be resolved answers: FALSE, 0, null or nothing.
template <class Result>
constexpr Result absent() {
    if constexpr (!std::is_void_v<Result>) {
        return Result{};
    }
}

/// Opens the libraries at construction and closes them at destruction, in the given order; one that does not open is
/// left out. Each member function looks its entry point up on the first call that finds it and calls it with the
/// arguments unchanged; one that is missing answers absent() and is looked for again at the next call. Thread-safe: two
/// threads that resolve one entry point at the same time find the same address.
class WincryptLoader {
public:
    explicit WincryptLoader(const std::vector<boost::filesystem::path>& paths);
    WincryptLoader(const WincryptLoader&) = delete;
    WincryptLoader& operator=(const WincryptLoader&) = delete;
    ~WincryptLoader();

#define WINCRYPT_CONST const
#define WINCRYPT_MUTABLE
#define WINCRYPT_MEMBER(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                      \
    result member parameters WINCRYPT_##qualifier;
    KLUNORTREDI_ENTRY_POINTS(WINCRYPT_MEMBER)
#undef WINCRYPT_MEMBER

private:
    template <class FnPtr>
    FnPtr resolve(std::atomic<FnPtr>& cached, const char* pointer, const char* symbol) const;

#define WINCRYPT_POINTER(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                     \
    mutable std::atomic<result(*) parameters> pointer##Function_{nullptr};
    KLUNORTREDI_ENTRY_POINTS(WINCRYPT_POINTER)
#undef WINCRYPT_POINTER

    std::vector<void*> libraries_;
};

} // namespace orvik::plugin::wincrypt
