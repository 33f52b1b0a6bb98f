#pragma once

#include "capi/constants.hpp"

namespace orvik::plugin::wincrypt {

/// Whether a failed acquisition means that the person dismissed the service's dialogue. Narrower than
/// SystemException::cancelled(), which also takes ERROR_INVALID_PARAMETER for a dismissed PIN dialogue: an acquisition
/// gets that code for a bad name, too.
constexpr bool acquisitionCancelled(DWORD code) {
    return code == capi::ERROR_CANCELLED || code == capi::SCARD_W_CANCELLED_BY_USER;
}

} // namespace orvik::plugin::wincrypt
