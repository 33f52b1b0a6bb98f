#include "curl_library.hpp"

#include <dlfcn.h>

#include <array>
#include <stdexcept>
#include <string>

namespace klunortredi::net {

namespace {

constexpr std::array names{"libcurl.so.4", "libcurl-gnutls.so.4", "libcurl-nss.so.4"};

template <class Function>
void find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(::dlsym(library, name));
    if (function == nullptr) {
        throw std::runtime_error(std::string("libcurl has no function ") + name + ": it is too old");
    }
}

void* openFirst(std::span<const char* const> libraries) {
    std::string reasons;
    for (const char* name : libraries) {
        if (void* const library = ::dlopen(name, RTLD_NOW | RTLD_LOCAL)) {
            return library; // never closed: it has threads and hooks at the end of the process
        }
        const char* const reason = ::dlerror();
        reasons += std::string(reasons.empty() ? "" : "; ") + (reason == nullptr ? name : reason);
    }
    throw std::runtime_error("HTTP requires libcurl, which cannot be opened: " + reasons);
}

} // namespace

CurlLibrary CurlLibrary::open(std::span<const char* const> libraries) {
    void* const library = openFirst(libraries);
    CurlLibrary made;
    find(library, "curl_global_init", made.globalInit);
    find(library, "curl_easy_init", made.easyInit);
    find(library, "curl_easy_cleanup", made.easyCleanup);
    find(library, "curl_easy_setopt", made.setOption);
    find(library, "curl_easy_getinfo", made.getInfo);
    find(library, "curl_easy_perform", made.perform);
    find(library, "curl_easy_strerror", made.errorText);
    find(library, "curl_slist_append", made.listAppend);
    find(library, "curl_slist_free_all", made.listFree);
    find(library, "curl_url", made.urlNew);
    find(library, "curl_url_cleanup", made.urlCleanup);
    find(library, "curl_url_set", made.urlSet);
    find(library, "curl_url_get", made.urlGet);
    find(library, "curl_free", made.release);
    if (made.globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
        throw std::runtime_error("libcurl does not start");
    }
    return made;
}

const CurlLibrary& CurlLibrary::instance() {
    static const CurlLibrary library = open(names); // an exception leaves it for the next call
    return library;
}

} // namespace klunortredi::net
