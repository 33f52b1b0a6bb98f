#pragma once

/// The password check of PKCS#12 files.

#include "core/ossl.hpp"

#include "work_factor.hpp"

#include <optional>
#include <string_view>

namespace klunortredi::admin {

/// A password in UTF-8. None is not the same as an empty one: RFC 7292, appendix B.1, hashes the terminating zero of
/// the latter.
using Password = std::optional<std::string_view>;

/// Whether the MAC over the file's contents (it must have one) is the password's. The key of a GOST MAC is derived
/// with PBKDF2 (R 50.1.112-2016: the last 32 of 96 octets) or, by other makers, as RFC 7292, appendix B, has it; both
/// are tried. Throws cli::Failure (exit 3) for a hash that is not known and for more work than `budget` has left.
bool macMatches(PKCS12* file, Password password, WorkBudget& budget);

/// The work of checking a password once.
std::uint64_t workOfMac(const PKCS12* file);

} // namespace klunortredi::admin
