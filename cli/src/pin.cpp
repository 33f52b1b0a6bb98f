#include "pin.hpp"

#include "capi/constants.hpp"
#include "capi/skipped_entries.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/i_auth_handle.hpp"
#include "service_words.hpp"

#include <algorithm>
#include <iterator>
#include <utility>

namespace klunortredi::cli {

namespace {

/// Whether a login failed with a code that says nothing about the PIN. Services have many for a wrong one, so it is
/// these that are named.
bool saysNothingOfThePin(std::uint32_t code) {
    constexpr std::uint32_t codes[] = {capi::ERROR_FILE_NOT_FOUND, capi::ERROR_PATH_NOT_FOUND,
                                       capi::ERROR_ACCESS_DENIED,  capi::ERROR_WRITE_FAULT,
                                       capi::ERROR_DISK_FULL,      capi::ERROR_BUSY,
                                       capi::ERROR_READ_FAULT,     capi::ERROR_TOO_MANY_OPEN_FILES,
                                       capi::NTE_KEYSET_ENTRY_BAD, capi::NTE_BAD_KEYSET,
                                       capi::NTE_BAD_LEN};
    return isOfTheMachine(code) || std::find(std::begin(codes), std::end(codes), code) != std::end(codes);
}

} // namespace

PinDialog::PinDialog(const PinOptions& options) : source_(options) {}

PinDialog::~PinDialog() {
    orvik::plugin::crypto::AuthProvider::setDialog({});
}

void PinDialog::install() {
    orvik::plugin::crypto::AuthProvider::setDialog(
        [this](const orvik::plugin::crypto::IAuthHandle& handle, unsigned attempt) -> boost::optional<std::string> {
            const auto pin = answer(orvik::plugin::converter::utf16_to_utf8(handle.container()), attempt);
            return pin ? boost::optional<std::string>(*pin) : boost::none;
        });
}

std::optional<std::string> PinDialog::answer(const std::string& container, unsigned attempt) {
    if (attempt > 0) { // asked again because of the login before
        trouble_ = orvik::plugin::wincrypt::GetLastErrorEx();
        outcome_ = saysNothingOfThePin(trouble_) ? Outcome::notJudged : Outcome::wrong;
        if (outcome_ == Outcome::notJudged) {
            return std::nullopt;
        }
    }
    try {
        if (!source_.fromTerminal() && attempt > 0) {
            return std::nullopt; // the same answer again would only cost another try
        }
        std::string prompt = "PIN for container " + container + ": ";
        if (attempt > 0) {
            const auto left = triesLeft_ ? triesLeft_() : std::nullopt;
            prompt =
                "Wrong PIN" + (left ? ", " + std::to_string(*left) + " tries left" : std::string{}) + ". " + prompt;
        }
        auto pin = source_.answer(prompt);
        if (!pin) {
            outcome_ = Outcome::cancelled;
            return pin;
        }
        return checkedPin(*std::move(pin));
    } catch (const Failure& e) {
        outcome_ = Outcome::noSource;
        sourceFailure_ = e;
        return std::nullopt;
    }
}

void PinDialog::setTriesLeft(std::function<std::optional<unsigned>()> triesLeft) {
    triesLeft_ = std::move(triesLeft);
}

Failure PinDialog::refusal(const std::string& what) const {
    if (outcome_ == Outcome::cancelled) {
        return {ExitCode::cancelled, what, "cancelled"};
    }
    if (outcome_ == Outcome::noSource && sourceFailure_) {
        return *sourceFailure_;
    }
    if (outcome_ == Outcome::notJudged) {
        return serviceFailure(what, trouble_);
    }
    const auto left = triesLeft_ ? triesLeft_() : std::nullopt;
    if (left == 0U) {
        return {ExitCode::pin, what, "the container is locked after too many wrong PINs",
                "unlock it with 'klunortredi-csp container unlock'", capi::SCARD_W_CHV_BLOCKED};
    }
    if (left) {
        return {ExitCode::pin,
                what,
                "the PIN is wrong, " + std::to_string(*left) + " tries left",
                {},
                capi::SCARD_W_WRONG_CHV};
    }
    return {ExitCode::pin, what, "the PIN is wrong", {}, capi::SCARD_W_WRONG_CHV};
}

} // namespace klunortredi::cli
