#pragma once

#include "crypto/wincrypt/tools_verify.hpp"

namespace orvik::plugin::wincrypt::tools {

/// What a code of the service says of a signature: 0 is valid; a code that means that the signature was computed and
/// does not hold is invalid, and so is one by which the embedded service says that its form breaks the rules; every
/// other one is unknown.
SignatureVerdict verdictOf(unsigned code);

} // namespace orvik::plugin::wincrypt::tools
