#pragma once

#define CURL_DISABLE_TYPECHECK 1
#include <curl/curl.h>

#include <span>

namespace klunortredi::net {

/// The functions of libcurl that are used, found in the library of the system when it is first needed.
struct CurlLibrary {
    decltype(&::curl_global_init) globalInit = nullptr;
    decltype(&::curl_easy_init) easyInit = nullptr;
    decltype(&::curl_easy_cleanup) easyCleanup = nullptr;
    decltype(&::curl_easy_setopt) setOption = nullptr;
    decltype(&::curl_easy_getinfo) getInfo = nullptr;
    decltype(&::curl_easy_perform) perform = nullptr;
    decltype(&::curl_easy_strerror) errorText = nullptr;
    decltype(&::curl_slist_append) listAppend = nullptr;
    decltype(&::curl_slist_free_all) listFree = nullptr;
    decltype(&::curl_url) urlNew = nullptr;
    decltype(&::curl_url_cleanup) urlCleanup = nullptr;
    decltype(&::curl_url_set) urlSet = nullptr;
    decltype(&::curl_url_get) urlGet = nullptr;
    decltype(&::curl_free) release = nullptr;

    /// The library of this process: opened at the first call, kept to the end. Throws std::runtime_error when none is
    /// installed; the next call looks again.
    static const CurlLibrary& instance();
    /// Opens the first of these libraries that is there.
    static CurlLibrary open(std::span<const char* const> names);
};

} // namespace klunortredi::net
