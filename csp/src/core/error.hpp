#pragma once

/// Errors inside the service are exceptions that carry a CryptoAPI code; at the C boundary they become the thread's
/// last error and the entry point's failure value.

#include "capi/constants.hpp"

#include <exception>
#include <new>
#include <utility>

namespace klunortredi::csp {

/// A refused call: `code()` is what GetLastError reports.
class ApiError : public std::exception {
public:
    explicit ApiError(DWORD code) noexcept : code_(code) {}
    [[nodiscard]] DWORD code() const noexcept { return code_; }
    [[nodiscard]] const char* what() const noexcept override { return "CryptoAPI error"; }

private:
    DWORD code_;
};

/// Throws ApiError. A function, so that a call reads as a sentence: `fail(capi::NTE_BAD_KEYSET);`
[[noreturn]] void fail(DWORD code);

/// The calling thread's last error. Success does not clear it.
DWORD lastError() noexcept;
void setLastError(DWORD code) noexcept;

/// Runs the body of an entry point. An exception sets the last error (ApiError: its code; out of memory:
/// ERROR_NOT_ENOUGH_MEMORY; anything else: NTE_FAIL) and gives `failure`; nothing else crosses the C boundary.
template <class Result, class Body>
Result guard(Result failure, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (const ApiError& e) {
        setLastError(e.code());
    } catch (const std::bad_alloc&) {
        setLastError(capi::ERROR_NOT_ENOUGH_MEMORY);
    } catch (...) {
        setLastError(capi::NTE_FAIL);
    }
    return failure;
}

/// `guard` for the many entry points that answer TRUE or FALSE and whose body returns nothing.
template <class Body>
BOOL guarded(Body&& body) noexcept {
    return guard<BOOL>(0, [&] {
        std::forward<Body>(body)();
        return 1;
    });
}

} // namespace klunortredi::csp
