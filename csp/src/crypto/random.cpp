#include "crypto/random.hpp"

#include "core/error.hpp"
#include "core/ossl.hpp"

#include <openssl/rand.h>

#include <algorithm>
#include <limits>

namespace klunortredi::csp {

void fillRandom(std::span<std::uint8_t> buffer) {
    const ossl::ErrorMark mark;
    while (!buffer.empty()) {
        const std::size_t size = std::min<std::size_t>(buffer.size(), std::numeric_limits<int>::max());
        if (RAND_priv_bytes(buffer.data(), static_cast<int>(size)) != 1) {
            fail(capi::NTE_FAIL);
        }
        buffer = buffer.subspan(size);
    }
}

} // namespace klunortredi::csp
