#pragma once

/// What lies in store "disallowed".

#include "core/ossl.hpp"
#include "stores/store.hpp"

#include <vector>

namespace klunortredi::csp {

/// Distrust holds for the certificate, for its public key, and for its issuer and serial number: the same certificate
/// with its signature written in another way has another thumbprint.
class Distrust {
public:
    /// Reads the store. ApiError(ERROR_INVALID_DATA), with a warning that names it, when an entry cannot be read: what
    /// it distrusts is not known. The store's own error when it cannot be read at all.
    Distrust();

    [[nodiscard]] bool holds(const Certificate& certificate, const X509* x509) const;

private:
    struct Entry {
        std::shared_ptr<Certificate> certificate;
        ossl::X509Ptr x509;
    };
    std::vector<Entry> entries_;
};

} // namespace klunortredi::csp
