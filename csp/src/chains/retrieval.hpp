#pragma once

/// CRLs, issuers and status answers from the network, for one chain. What cannot be retrieved, or is not what it should
/// be, is left out with a warning: nothing is known then.

#include "chains/ocsp.hpp"
#include "core/bytes.hpp"
#include "core/ossl.hpp"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace klunortredi::net {
struct HttpRequest;
class Cache;
} // namespace klunortredi::net

namespace klunortredi::csp {

/// What all retrievals of one chain may cost together.
struct RetrievalBudget {
    std::chrono::milliseconds time{15'000};
    std::size_t requests = 16;                   ///< a chain of four certificates with two addresses each, and more
    std::size_t octets = std::size_t{32} << 20U; ///< the largest national CRLs have some ten million
};

class Retrieval {
public:
    /// `anew`: what is kept from before is not used. The time begins now.
    Retrieval(const RetrievalBudget& budget, bool anew);

    /// DER of the CRL at a location. It is kept until its nextUpdate when `issuer` signed it; its signature is
    /// otherwise for the caller to check.
    std::optional<Bytes> crl(const std::string& location, X509* issuer);
    /// DER of the certificates at a location: one as DER or PEM, or those of a certificates-only message.
    std::vector<Bytes> certificates(const std::string& location);
    /// The answer of a server about a certificate (see OcspRequest::read).
    std::optional<OcspAnswer> status(const std::string& location, const OcspRequest& request,
                                     const std::vector<std::shared_ptr<X509_CRL>>& lists);

private:
    /// Until when an answer can be kept; 0: not at all. Throws NetworkError when it is not what was asked for.
    using Judge = std::function<std::time_t(const std::string& octets)>;

    std::optional<std::string> obtain(const std::string& key, net::HttpRequest request, const Judge& validUntil);
    std::string download(net::HttpRequest& request);
    [[nodiscard]] std::chrono::milliseconds timeLeft() const;

    RetrievalBudget left_;
    const std::chrono::steady_clock::time_point end_;
    const bool anew_;
};

} // namespace klunortredi::csp
