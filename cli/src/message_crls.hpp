#pragma once

/// Revocation lists that a message carries.

#include <cstddef>
#include <string>
#include <vector>

namespace klunortredi::cli {

/// Octets of the CRLs that are read out of one message. A decoded CRL takes about twenty times its size in memory, and
/// whoever sends a message must not decide how much that is; larger lists come from the stores or `--with`.
inline constexpr std::size_t mostMessageCrlOctets = std::size_t{4} << 20U;

struct MessageCrls {
    std::vector<std::string> read;       ///< DER
    std::vector<std::string> passedOver; ///< in words, those beyond the limit: any of them may revoke
};

/// The CRLs of an open message. Throws SystemException.
MessageCrls readCrls(void* message);

} // namespace klunortredi::cli
