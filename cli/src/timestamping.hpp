#pragma once

/// Time-stamps of authorities on the network, put on signatures through the framework's transformers.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::cli {

/// Octets of a signature that is time-stamped. It is read into memory, and the service and the result need as much
/// again, several times.
inline constexpr std::size_t largestToStamp = 256UL * 1024 * 1024;

/// Throws Failure (exit 2), naming `option`, unless every address is an http or https URL without blanks.
void checkAuthorities(const std::string& option, const std::vector<std::string>& urls);

/// The signature (of that format: attached, detached or xmldsig) with a time-stamp of the first authority that gives an
/// acceptable one; they are asked in turn, with a fresh nonce each. Throws as the framework does: ApplicationException
/// with what each authority did when none does.
std::vector<unsigned char> withTimestamp(const std::string& format, std::string_view signature,
                                         const std::vector<std::string>& urls);

} // namespace klunortredi::cli
