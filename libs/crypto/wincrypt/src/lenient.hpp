#pragma once

#include <stdexcept>

namespace orvik::plugin::wincrypt {

/// What `convert` returns; the empty value of its type for text that has no conversion. For texts that a certificate
/// brings along: a malformed one is as good as none.
template <class Convert>
auto orEmpty(Convert convert) -> decltype(convert()) {
    try {
        return convert();
    } catch (const std::range_error&) {
        return {};
    }
}

} // namespace orvik::plugin::wincrypt
