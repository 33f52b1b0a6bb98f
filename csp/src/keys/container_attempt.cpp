// Attempts at a PIN: counted before the key is derived, judged afterwards, and not under the lock in between.

#include "core/error.hpp"
#include "core/warning.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/engine.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/public_key_info.hpp"
#include "crypto/signature.hpp"
#include "keys/container.hpp"
#include "keys/key_file.hpp"

#include <algorithm>
#include <atomic>
#include <thread>

namespace klunortredi::csp {

namespace {

/// A wrong PIN was given in this process where the count could not be written: all further attempts that cannot be
/// counted are refused, or a read-only home would allow any number of guesses.
std::atomic<bool> guessedWithoutCount{false};
/// The user was warned of that.
std::atomic<bool> warnedOfNoCount{false};

void warnOfNoCount(const std::string& name) {
    if (!warnedOfNoCount.exchange(true)) {
        notice("the PIN tries of container " + name + " cannot be counted; a wrong PIN ends all tries of this process");
    }
}

} // namespace

DWORD Container::triesLeft(DWORD onDisk) const {
    if (!uncounted_) {
        return onDisk;
    }
    return guessedWithoutCount ? 0 : std::min<DWORD>(onDisk, 1);
}

/// Damage and a machine without the engine must not eat up the tries of a right PIN: they are looked for first.
Container::Attempt Container::readAttempt() const {
    Attempt attempt;
    for (const KeyEntry& entry : meta_.keys) {
        attempt.files.emplace_back(entry, readKeyFile(entry));
        const KeyAlgorithm* const algorithm = findKey(spki::split(entry.publicKeyInfo).oid);
        if (algorithm != nullptr && algorithm->gost) {
            gostEngine();
        }
    }
    return attempt;
}

Container::Attempt Container::beginAttempt() {
    constexpr std::chrono::milliseconds pollInterval{5};
    const auto deadline = std::chrono::steady_clock::now() + files::lockTimeLimit;
    while (true) {
        {
            const auto held = lock();
            Attempt attempt = readAttempt();
            if (!meta_.wantsPin || takeTicket(attempt)) {
                return attempt;
            }
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            fail(capi::ERROR_BUSY);
        }
        std::this_thread::sleep_for(pollInterval);
    }
}

bool Container::takeTicket(Attempt& attempt) {
    const PinTries now = tries();
    if (now.failed >= pinTryLimit) {
        fail(capi::SCARD_W_CHV_BLOCKED);
    }
    if (now.unjudged >= unjudgedTryLimit) {
        if (!files::Presence::any(directory_)) {
            fail(capi::SCARD_W_CHV_BLOCKED);
        }
        return false; // some of them may still be judged
    }
    attempt.presence.emplace(directory_);
    try {
        writeTries({now.failed, now.unjudged + 1});
        attempt.count = Attempt::Count::OnDisk;
    } catch (const ApiError& error) {
        if (error.code() != capi::ERROR_ACCESS_DENIED) {
            throw;
        }
        uncounted_ = true;
        if (guessedWithoutCount) {
            fail(capi::SCARD_W_CHV_BLOCKED);
        }
        attempt.count = Attempt::Count::InProcess;
        warnOfNoCount(meta_.id.name);
    }
    return true;
}

/// Empty when the PIN is wrong.
UnlockedKeys Container::decrypt(const Attempt& attempt, std::string_view pin) {
    UnlockedKeys keys;
    for (const auto& [entry, file] : attempt.files) {
        ossl::Pkey key = decryptKey(file, pin);
        if (!key) {
            return {};
        }
        if (!samePublicKey(publicKeyInfo(key.get()), entry.publicKeyInfo)) {
            fail(capi::NTE_KEYSET_ENTRY_BAD);
        }
        keys.emplace(entry.spec, std::shared_ptr<EVP_PKEY>(std::move(key)));
    }
    return keys;
}

/// Whether the description still names the key files that were read.
bool Container::isCurrent(const Attempt& attempt) const {
    return std::ranges::equal(meta_.keys, attempt.files, [](const KeyEntry& now, const auto& read) {
        return now.spec == read.first.spec && now.generation == read.first.generation &&
               now.fileHash == read.first.fileHash;
    });
}

/// The attempt is not judged: it is as if it had not begun. What cannot be written stays counted.
void Container::forget(const Attempt& attempt) {
    if (attempt.count != Attempt::Count::OnDisk) {
        return;
    }
    const PinTries now = tries();
    writeTries({now.failed, now.unjudged > 0 ? now.unjudged - 1 : 0});
}

void Container::judge(const Attempt& attempt, bool right) {
    if (attempt.count == Attempt::Count::InProcess) {
        // An attempt that was under way when another failed gets no answer either.
        if (right ? guessedWithoutCount.load() : guessedWithoutCount.exchange(true)) {
            fail(capi::SCARD_W_CHV_BLOCKED);
        }
    } else if (attempt.count == Attempt::Count::OnDisk) {
        const PinTries now = tries();
        if (now.failed >= pinTryLimit) { // others failed meanwhile: the answer would be one too many
            fail(capi::SCARD_W_CHV_BLOCKED);
        }
        writeTries(right ? PinTries{} : PinTries{now.failed + 1, now.unjudged > 0 ? now.unjudged - 1 : 0});
    } else if (!right) {
        fail(capi::NTE_KEYSET_ENTRY_BAD);
    }
    if (!right) {
        fail(capi::SCARD_W_WRONG_CHV);
    }
}

bool Container::settle(const Attempt& attempt, bool right) {
    const auto held = lock();
    if (!isCurrent(attempt)) {
        forget(attempt);
        return false;
    }
    judge(attempt, right);
    rememberOpened();
    return true;
}

UnlockedKeys Container::unlock(std::string_view pin) {
    while (true) {
        const Attempt attempt = beginAttempt();
        if (attempt.count == Attempt::Count::None && !pin.empty()) {
            fail(capi::SCARD_W_WRONG_CHV); // there is no PIN to guess
        }
        UnlockedKeys keys;
        try {
            keys = decrypt(attempt, pin);
        } catch (...) { // damage, or no memory: the PIN was not judged
            const auto held = lock();
            forget(attempt);
            throw;
        }
        if (settle(attempt, !keys.empty())) {
            return keys;
        }
    }
}

} // namespace klunortredi::csp
