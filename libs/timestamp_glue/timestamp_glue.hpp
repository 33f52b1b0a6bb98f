#pragma once

/// The link between the framework's time-stamping (orvik/plugin/crypto/timestamp_tools.hpp) and the plug-in's
/// time-stamp functions (crypto/wincrypt/tools_timestamp.hpp), neither of which knows of the other. An application
/// links this library and calls `installTimestampTools` once.

#include "orvik/plugin/crypto/timestamp_tools.hpp"

#include <functional>
#include <vector>

namespace orvik::plugin::timestamp_glue {

/// Time-stamps through the plug-in and its CryptoAPI service. Keeps no state.
///
/// A response is accepted when the plug-in's own checks hold (status, imprint, signature) and, beyond these: it is no
/// larger than 100,000 octets; the token is a TSTInfo of version 1 with one signer (RFC 3161, 2.4.2); its nonce and its
/// imprint's algorithm are those of the request; it has no critical extension; the authority's certificate is in the
/// token, its only extended key usage is timeStamping, in a critical extension (RFC 3161, 2.3), and the token's time is
/// within its validity; the signed attribute signing-certificate or signing-certificate-v2 names it (RFC 5816). No
/// algorithm that it depends on is broken (crypto::weaknesses).
class WincryptTimestampTools : public crypto::cadest::TimestampTools {
public:
    WincryptTimestampTools();
    ~WincryptTimestampTools() override;

    [[nodiscard]] std::string makeRequest(boost::string_view signature, boost::string_view nonce) const override;
    [[nodiscard]] std::string embed(boost::string_view signature, boost::string_view response,
                                    boost::string_view nonce) const override;
    [[nodiscard]] std::string makeRequestFor(boost::string_view octets, const std::string& digestOid,
                                             boost::string_view nonce) const override;
    [[nodiscard]] std::string tokenFor(boost::string_view octets, const std::string& digestOid,
                                       boost::string_view response, boost::string_view nonce) const override;
    [[nodiscard]] crypto::cadest::TimestampVerdict judge(boost::string_view token,
                                                         boost::string_view octets) const override;

    /// Certificates beside a token, among which that of its authority may be.
    using CertificateSource = std::function<std::vector<boost::shared_ptr<crypto::ICertificate>>()>;
    /// The same for a token that need not carry its authority's certificate (RFC 3161, 2.4.1: certReq): `outside` is
    /// asked when it does not. Of those certificates only one counts that the token's signed attributes name and under
    /// which its signature holds; without one, or where `outside` throws a SystemException, the verdict is unknown.
    [[nodiscard]] crypto::cadest::TimestampVerdict judge(boost::string_view token, boost::string_view octets,
                                                         const CertificateSource& outside) const;
};

/// Makes them the process's TimestampTools.
void installTimestampTools();

} // namespace orvik::plugin::timestamp_glue
