#pragma once

/// What OpenSSL finds on one path, certificate by certificate.

#include "capi/types.h"
#include "core/ossl.hpp"

#include <openssl/x509_vfy.h>

#include <ctime>
#include <set>
#include <vector>

namespace klunortredi::csp {

class Findings {
public:
    explicit Findings(std::time_t time) : time_(time) {}

    /// Notes what the verification reports now; `applied` is the CRL that a revoked certificate stands on. ApiError for
    /// what says nothing about certificates.
    void note(X509_STORE_CTX* context, X509_CRL* applied);
    /// Notes an X509_V_ERR_... of the certificate at `depth`.
    void note(int error, int depth);

    /// Bits of the certificate at `index`, 0 the one asked about.
    [[nodiscard]] DWORD ofElement(std::size_t index) const noexcept {
        return index < elements_.size() ? elements_[index] : 0;
    }
    [[nodiscard]] DWORD ofChain() const noexcept { return chain_; }

    DWORD failure = 0; ///< code to throw once OpenSSL has returned

private:
    const std::time_t time_;
    std::vector<DWORD> elements_;
    std::set<std::size_t> unusableCrl_;
    DWORD chain_ = 0;
};

/// Whether OpenSSL reports as a problem what is none: the second of notAfter, and of a CRL's nextUpdate, still counts
/// (RFC 5280, section 4.1.2.5: "through notAfter, inclusive").
bool isWithinLastSecond(X509_STORE_CTX* context, int error, std::time_t time);

} // namespace klunortredi::csp
