#pragma once

/// The trust bits of a chain as names and as sentences.

#include "trust.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace klunortredi::cli {

/// CERT_TRUST_... names of every error bit, the gravest first; a bit without a name as "0x00400000".
/// `certificate` is any one.
std::vector<std::string> statusNames(std::uint32_t status, const orvik::plugin::crypto::ICertificate& certificate);

/// What is wrong with an element by its status bits, the gravest first, and what to do. `unfit` is what is known about
/// a usage that it is not for.
std::vector<Problem> problemsOf(const TrustElement& element, const ChainQuery& query,
                                const std::optional<Problem>& unfit);

/// What is said of a chain with errors when the service reports that the limits of its search were reached.
Problem searchLimitReached();

/// The same as `problemsOf` for bits that no element has.
std::vector<Problem> problemsOfChain(std::uint32_t bits);

} // namespace klunortredi::cli
