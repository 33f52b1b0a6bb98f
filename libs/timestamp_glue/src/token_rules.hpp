#pragma once

#include "token.hpp"

#include "orvik/plugin/crypto/timestamp_tools.hpp"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvik::plugin::timestamp_glue {

using crypto::cadest::TimestampVerdict;

/// Octets of a token, or of a response, that are looked at: those in use have under 20,000, and the CryptoAPI's sizing
/// helpers take decoded structures up to 102,400.
constexpr std::size_t largestToken = 100'000;

/// What was asked of the authority.
struct Asked {
    std::string digestOid; ///< of the imprint
    std::string nonce;
};

/// Certificates beside the token among which the authority's may be; asked for when the token does not carry it.
using CertificateSource = std::function<std::vector<boost::shared_ptr<crypto::ICertificate>>()>;

/// The verdict on a token (one CMS message, see Token) for `octets`. `outside` may be empty. With `asked`, its nonce
/// and its imprint's algorithm must be those, and a service that judges signers by their index is not required: then
/// the result is valid without the signature's verdict, which the caller adds.
TimestampVerdict judgeToken(boost::string_view token, boost::string_view octets, const std::optional<Asked>& asked,
                            const CertificateSource& outside);

} // namespace orvik::plugin::timestamp_glue
