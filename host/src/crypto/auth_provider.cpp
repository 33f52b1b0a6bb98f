#include "orvik/plugin/crypto/auth_provider.hpp"

#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_auth_handle.hpp"
#include "orvik/plugin/crypto/i_private_key.hpp"
#include "orvik/plugin/log.hpp"

#include <climits>
#include <mutex>
#include <utility>

namespace orvik::plugin::crypto {

namespace {

using exception::CryptoException;

std::mutex dialogMutex;
AuthProvider::Dialog installedDialog; // guarded by dialogMutex

AuthProvider::Dialog currentDialog() {
    const std::lock_guard lock(dialogMutex);
    return installedDialog;
}

/// Whether one more PIN may be tried after so many failures.
bool mayTry(const IAuthHandle& handle, unsigned failures) {
    return failures < handle.maxAttempts().value_or(UINT_MAX) && !handle.isLocked() && !handle.isAuthRejected();
}

bool isRefusal(const CryptoException& e) {
    return e.code() ==
           std::error_code(static_cast<int>(CryptoException::Code::authorizationRefused), exception::cryptoCategory());
}

} // namespace

void AuthProvider::setDialog(Dialog dialog) {
    const std::lock_guard lock(dialogMutex);
    installedDialog = std::move(dialog);
}

bool AuthProvider::authorize(const boost::shared_ptr<IPrivateKey>& key, const std::string& reason) {
    if (key->authenticated() || !key->supportsAuthentication()) {
        return true;
    }
    log::debug("crypto: authorization of a private key, reason: " + log::quoted(reason));
    try {
        key->authenticate({});
        return true;
    } catch (const CryptoException& e) {
        if (isRefusal(e)) {
            return false;
        }
        throw;
    }
}

bool AuthProvider::authorize(const boost::shared_ptr<IAuthHandle>& handle, const std::string& pin) {
    unsigned failures = 0;
    if (!pin.empty()) {
        if (handle->login(pin)) {
            return true;
        }
        ++failures;
    }
    const Dialog dialog = currentDialog();
    while (dialog && mayTry(*handle, failures)) {
        const auto answer = dialog(*handle, failures);
        if (!answer) {
            return false;
        }
        if (handle->login(*answer)) {
            return true;
        }
        ++failures;
    }
    return false;
}

} // namespace orvik::plugin::crypto
