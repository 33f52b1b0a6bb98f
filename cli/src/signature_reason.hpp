#pragma once

#include <cstdint>
#include <string>

namespace klunortredi::cli {

/// Why a signature is not valid, from the service's code for it, with the next step where there is one. Some codes
/// mean something else about a signature than about a call: they have words of their own here.
std::string signatureReason(std::uint32_t code);

} // namespace klunortredi::cli
