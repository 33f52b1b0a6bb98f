#pragma once

/// Refusals by a limit, which name it.

#include "core/error.hpp"

#include <cstdint>
#include <string>

namespace klunortredi::csp {

/// CRYPT_E_ASN1_LARGE, and which limit was exceeded.
class LimitError : public ApiError {
public:
    /// `most` is the limit, `of` what it counts ("signers").
    LimitError(std::uint64_t most, const char* of)
        : ApiError(capi::CRYPT_E_ASN1_LARGE), limit_("more than " + std::to_string(most) + " " + of) {}

    /// "more than 256 signers"; ASCII.
    [[nodiscard]] const std::string& limit() const noexcept { return limit_; }

private:
    std::string limit_;
};

/// Throws LimitError.
[[noreturn]] inline void failAtLimit(std::uint64_t most, const char* of) {
    throw LimitError(most, of);
}

} // namespace klunortredi::csp
