#pragma once

/// Texts of error codes, as FormatMessage gives them.

#include "capi/types.h"

#include <span>
#include <string>
#include <string_view>

namespace klunortredi::csp {

struct ErrorText {
    DWORD code;
    std::string_view text; ///< Russian, UTF-8, without a line end
};

/// Every error code of capi/constants.hpp.
std::span<const ErrorText> errorTexts() noexcept;

/// The text of `code` in Windows-1251, ending in CR LF. A system error dressed as 0x8007xxxx is found by its own
/// number. ApiError(ERROR_MR_MID_NOT_FOUND) for an unknown code.
std::string errorMessage(DWORD code);

} // namespace klunortredi::csp
