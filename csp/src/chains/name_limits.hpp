#pragma once

/// Name constraints (RFC 5280, 4.2.1.10) where OpenSSL is too lenient.

#include "capi/types.h"
#include "core/ossl.hpp"

#include <vector>

namespace klunortredi::csp {

/// The name constraints of the certificates above an element, gathered from the anchor down.
class NameLimits {
public:
    /// Adds the constraints of one certificate. Malformed ones are OpenSSL's to report.
    void add(const X509* certificate);
    [[nodiscard]] bool empty() const noexcept { return constraints_.empty(); }
    /// CERT_TRUST_... error bits of names that the constraints cannot let pass: a wildcard name that covers an excluded
    /// one, and under constraints of their kind a URI or a mailbox that can be taken apart in two ways (name_form.hpp).
    /// INVALID_NAME_CONSTRAINTS where there are more names and constraints than are compared.
    [[nodiscard]] DWORD errors(const X509* certificate) const;

private:
    [[nodiscard]] bool excludesWildcard(const ASN1_IA5STRING* dnsName) const;
    [[nodiscard]] bool limits(int nameType) const;

    std::size_t bases_ = 0; ///< in all constraints
    std::vector<std::unique_ptr<NAME_CONSTRAINTS, ossl::Deleter<NAME_CONSTRAINTS_free>>> constraints_;
};

} // namespace klunortredi::csp
