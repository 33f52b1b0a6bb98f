#include "xml/late_binding.hpp"

#include <libxml/xmlversion.h>

#include <dlfcn.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace orvik::plugin::xml::internal {

namespace {

/// The name under which systems install the library whose headers were compiled in.
constexpr int renamed = 21400; // 2.14 is the first with other structures
constexpr const char* libraryName = LIBXML_VERSION >= renamed ? "libxml2.so.16" : "libxml2.so.2";

[[noreturn]] void fail() {
    const char* const reason = ::dlerror();
    throw std::system_error(ELIBACC, std::generic_category(), reason == nullptr ? libraryName : reason);
}

void* library() {
    static void* const opened = [] {
        void* const handle = ::dlopen(libraryName, RTLD_NOW | RTLD_LOCAL); // never closed: threads keep its data
        if (handle == nullptr) {
            fail();
        }
        return handle;
    }();
    return opened;
}

} // namespace

void* addressInLibxml(const char* name) {
    void* const address = ::dlsym(library(), name);
    if (address == nullptr) {
        fail();
    }
    return address;
}

} // namespace orvik::plugin::xml::internal
