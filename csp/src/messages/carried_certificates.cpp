#include "messages/carried_certificates.hpp"

#include "core/error.hpp"
#include "messages/signer_match.hpp"

namespace klunortredi::csp {

CarriedCertificates::CarriedCertificates(const std::vector<ByteView>& encoded) {
    for (const ByteView certificate : encoded) {
        try {
            certificates_.emplace_back(certificate);
        } catch (const ApiError&) {
            continue;
        }
    }
}

std::vector<const CertInfo*> CarriedCertificates::named(const SignerId& id) const {
    std::vector<const CertInfo*> found;
    for (const CertInfo& certificate : certificates_) {
        if (namesCertificate(id, certificate.get())) {
            found.push_back(&certificate);
        }
    }
    return found;
}

} // namespace klunortredi::csp
