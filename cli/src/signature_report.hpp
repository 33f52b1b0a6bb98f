#pragma once

/// How one signer, and those who counter-signed, are shown.

#include "signers.hpp"

#include <nlohmann/json_fwd.hpp>

#include <ostream>

namespace klunortredi::cli {

nlohmann::ordered_json toJson(const Signer& signer);
/// `alone`: the message has no other signer, so that its verdict is that on the message.
void print(std::ostream& out, const Signer& signer, bool alone);

} // namespace klunortredi::cli
