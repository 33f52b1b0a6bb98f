#include "keys/key_access.hpp"

#include "core/error.hpp"

namespace klunortredi::csp {

void KeyAccess::present(const Container& container, std::string_view pin) {
    if (container.wantsPin() && container.triesRemaining() == 0) {
        fail(capi::SCARD_W_CHV_BLOCKED);
    }
    if (container.keys().empty() && chosen_) {
        return compare(pin);
    }
    if (keys_.empty() || this->pin() != pin) {
        keys_.clear();
        pin_ = secretOf(pin);
    }
}

void KeyAccess::verify(Container& container, std::string_view pin) {
    if (container.keys().empty() && pin_) {
        return compare(pin);
    }
    keys_.clear();
    pin_.reset();
    keys_ = container.unlock(pin);
    pin_ = secretOf(pin);
}

/// Before the first key pair there is nothing else to judge a PIN by.
void KeyAccess::compare(std::string_view pin) const {
    if (this->pin() != pin) {
        fail(capi::SCARD_W_WRONG_CHV);
    }
}

void KeyAccess::open(Container& container) {
    if (!keys_.empty()) {
        return;
    }
    if (!pin_ && container.wantsPin()) {
        fail(capi::SCARD_W_CARD_NOT_AUTHENTICATED);
    }
    const Secret pin = secretOf(this->pin());
    verify(container, view(pin));
}

void KeyAccess::change(Container& container, std::string_view pin) {
    open(container);
    try {
        container.changePin(keys_, pin);
    } catch (const ApiError& error) {
        if (error.code() == capi::NTE_BAD_KEY_STATE) { // the PIN that opened it is not the container's any more
            keys_.clear();
            pin_.reset();
        }
        throw;
    }
    pin_ = secretOf(pin);
}

std::shared_ptr<EVP_PKEY> KeyAccess::key(Container& container, DWORD spec) {
    container.key(spec);
    open(container);
    if (!keys_.contains(spec)) { // added by another process after this context unlocked the container
        const Secret pin = secretOf(this->pin());
        verify(container, view(pin));
    }
    return keys_.at(spec);
}

} // namespace klunortredi::csp
