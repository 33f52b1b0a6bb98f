#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>

#include <cstdint>
#include <string>

namespace orvik::plugin::crypto {

/// What a PIN dialogue works on.
class ORVIK_EXPORT IAuthHandle {
public:
    enum Status : std::uint32_t { success = 0, initial = 1, failure = 2 };
    /// Bits of states().
    enum State : std::uint64_t { loggedIn = 1, loginFailed = 4 };

    IAuthHandle() = default;
    IAuthHandle(const IAuthHandle&) = delete;
    IAuthHandle& operator=(const IAuthHandle&) = delete;
    virtual ~IAuthHandle();

    /// Tries one PIN.
    virtual bool login(const std::string& pin) = 0;
    [[nodiscard]] virtual std::uint32_t status() const = 0;
    [[nodiscard]] virtual std::uint64_t states() const = 0;
    [[nodiscard]] virtual std::wstring container() const = 0;
    /// How many failed logins one dialogue allows.
    [[nodiscard]] virtual boost::optional<unsigned> maxAttempts() const = 0;
    [[nodiscard]] virtual bool isLocked() const;
    [[nodiscard]] virtual bool isAuthRejected() const = 0;
    [[nodiscard]] virtual bool isToken() const;
};

} // namespace orvik::plugin::crypto
