#pragma once

/// Random octets.

#include <cstdint>
#include <span>

namespace klunortredi::csp {

/// Fills `buffer` from OpenSSL's generator for secret values. Throws ApiError(NTE_FAIL) when it has no entropy.
void fillRandom(std::span<std::uint8_t> buffer);

} // namespace klunortredi::csp
