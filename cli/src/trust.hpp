#pragma once

/// A certificate's chain, judged by the service.

#include "orvik/plugin/crypto/i_certificate.hpp"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace klunortredi::cli {

struct Trust {
    bool trusted = false;
    std::uint32_t status = 0;
    std::vector<std::string> statusNames; ///< of every status bit, the gravest first
};

/// From what lies on this machine; never goes to the network.
Trust judgeChain(const orvik::plugin::crypto::ICertificate& certificate);

nlohmann::ordered_json toJson(const Trust& trust);
/// "trusted", or "not trusted: NAME, NAME".
std::string describe(const Trust& trust);

} // namespace klunortredi::cli
