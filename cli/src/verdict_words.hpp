#pragma once

/// Verdicts on signatures, counter-signatures and time-stamps as words and as JSON.

#include "crypto/wincrypt/tools_verify.hpp"
#include "weak.hpp"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace klunortredi::cli {

/// "valid", "invalid" or "unknown", for programs.
const char* jsonWord(orvik::plugin::wincrypt::tools::SignatureVerdict verdict);
/// "valid", "INVALID" or "not judged", for people.
const char* spokenWord(orvik::plugin::wincrypt::tools::SignatureVerdict verdict);
/// "INVALID: why" or "UNKNOWN: why", as a part of a line; the reason is made printable.
std::string headline(orvik::plugin::wincrypt::tools::SignatureVerdict verdict, const std::string& reason);
/// true, false, or null for what is not known.
nlohmann::ordered_json truth(orvik::plugin::wincrypt::tools::SignatureVerdict verdict);
/// An array of sentences.
nlohmann::ordered_json weakList(const std::vector<Weakness>& found);

} // namespace klunortredi::cli
