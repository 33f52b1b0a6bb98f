#pragma once

#include "options.hpp"

namespace klunortredi::admin {

/// Options that every verb takes.
struct AdminOptions : cli::Options {
    cli::PinOptions newPin;   ///< the PIN that is set by a change
    cli::PinOptions password; ///< of a key file
};

} // namespace klunortredi::admin
