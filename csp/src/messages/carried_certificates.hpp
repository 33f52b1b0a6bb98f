#pragma once

/// The certificates that a message brings, decoded.

#include "messages/signer_info.hpp"
#include "x509/cert_info.hpp"

#include <deque>
#include <vector>

namespace klunortredi::csp {

/// Decodes each certificate once. One that CertInfo refuses is left out: nobody can be named by it.
class CarriedCertificates {
public:
    explicit CarriedCertificates(const std::vector<ByteView>& encoded);

    /// The certificates that `id` names, in the message's order. More than one only where somebody repeated a
    /// certificate or made another of the same issuer and serial number. The pointers live as long as this object.
    [[nodiscard]] std::vector<const CertInfo*> named(const SignerId& id) const;

private:
    std::deque<CertInfo> certificates_;
};

} // namespace klunortredi::csp
