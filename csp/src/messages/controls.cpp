#include "messages/controls.hpp"

#include "capi/constants.hpp"
#include "core/error.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

void refuseControl(DWORD type) {
    constexpr std::array known{capi::CMSG_CTRL_VERIFY_SIGNATURE, capi::CMSG_CTRL_DECRYPT, capi::CMSG_CTRL_VERIFY_HASH,
                               capi::CMSG_CTRL_ADD_SIGNER_UNAUTH_ATTR, capi::CMSG_CTRL_VERIFY_SIGNATURE_EX};
    fail(std::ranges::find(known, type) == known.end() ? capi::CRYPT_E_CONTROL_TYPE : capi::CRYPT_E_INVALID_MSG_TYPE);
}

} // namespace klunortredi::csp
