#pragma once

/// The PIN of a container and the key pairs it opens, as one provider context has them.

#include "core/secret.hpp"
#include "keys/container.hpp"

namespace klunortredi::csp {

/// Not thread-safe: the context that owns it holds its lock around each call.
class KeyAccess {
public:
    /// PIN_PRESENT: remembers the PIN without judging it, so that presenting and then verifying a wrong one counts
    /// once. Throws ApiError(SCARD_W_CHV_BLOCKED) when the container is locked. The PIN chosen for a container that has
    /// no key pair yet is not replaced: SCARD_W_WRONG_CHV for another.
    void present(const Container& container, std::string_view pin);
    /// PIN_VERIFY: judges it; a wrong one leaves the context locked. Throws as Container::unlock does.
    void verify(Container& container, std::string_view pin);
    /// PP_PIN_NEW: replaces the PIN of a container that this context opens.
    void change(Container& container, std::string_view pin);

    /// The key pair, unlocked with the PIN presented where needed (a PIN found wrong is forgotten). Throws ApiError:
    /// NTE_NO_KEY, SCARD_W_CARD_NOT_AUTHENTICATED, and as Container::unlock does.
    std::shared_ptr<EVP_PKEY> key(Container& container, DWORD spec);
    /// Makes sure that the PIN is proved; throws as `key` does.
    void open(Container& container);

    /// For a container being made: its PIN, and key pairs that need no unlocking.
    void choose(std::string_view pin) {
        pin_ = secretOf(pin);
        chosen_ = true;
    }
    [[nodiscard]] std::string_view pin() const noexcept { return pin_ ? view(*pin_) : std::string_view{}; }
    void keep(DWORD spec, std::shared_ptr<EVP_PKEY> key) { keys_[spec] = std::move(key); }

private:
    void compare(std::string_view pin) const;

    std::optional<Secret> pin_; ///< presented, or proved when there are keys
    bool chosen_ = false;       ///< by the one who makes the container, for good
    UnlockedKeys keys_;
};

} // namespace klunortredi::csp
