#pragma once

/// Exclusive ownership of a handle that a C interface gives out.

#include "orvik/plugin/exception/exception.hpp"
#include "orvik/plugin/log.hpp"

#include <functional>
#include <string>
#include <utility>

namespace orvik::plugin {

/// Owns one handle. 0 (null) means that nothing is held.
///
/// The initialiser acquires the handle in the constructor, or the owner stores one later through put(); the finaliser
/// gives a held handle back, once, in the destructor. What the finaliser throws is logged and goes no further. One
/// thread uses a wrapper at a time.
template <class T, class Init = std::function<void(T&)>, class Finalize = std::function<void(T&)>>
class scoped_handle {
public:
    scoped_handle(Init&& init, Finalize&& finalize) : init_(std::move(init)), finalize_(std::move(finalize)) {
        if (init_) {
            init_(handle_);
        }
    }
    scoped_handle(const scoped_handle&) = delete;
    scoped_handle& operator=(const scoped_handle&) = delete;
    virtual ~scoped_handle() { finish(); }

    /// The handle; stays the wrapper's.
    [[nodiscard]] const T& get() const noexcept { return handle_; }
    [[nodiscard]] explicit operator bool() const noexcept { return handle_ != T{}; }

    /// Where a CryptoAPI call stores a handle for this wrapper to own. A handle already held is given back first.
    [[nodiscard]] T* put() noexcept {
        finish();
        return &handle_;
    }

    /// Gives the handle up to a call that consumes it.
    [[nodiscard]] T detach() noexcept { return std::exchange(handle_, T{}); }

protected:
    /// Gives a held handle back now. A derived class whose finaliser reads its own members calls this in its
    /// destructor, while they still live.
    void finish() noexcept {
        if (handle_ == T{} || !finalize_) {
            return;
        }
        try {
            finalize_(handle_);
        } catch (...) {
            reportFailure();
        }
        handle_ = T{};
    }

private:
    static void reportFailure() noexcept {
        try {
            log::warning("finalize scoped_handle: " + exception::diagnostic());
        } catch (...) { // no memory for the text: the record is lost, the destructor still returns
        }
    }

    T handle_{};
    Init init_;
    Finalize finalize_;
};

} // namespace orvik::plugin
