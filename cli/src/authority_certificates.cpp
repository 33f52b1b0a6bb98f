#include "authority_certificates.hpp"

#include <set>
#include <utility>

namespace klunortredi::cli {

std::vector<CertificatePtr> authorityCandidates(const std::vector<std::string>& given) {
    std::vector<CertificatePtr> all;
    std::set<std::string> seen;
    for (const std::string& der : given) {
        if (seen.insert(der).second) {
            all.push_back(certificateFromDer(der));
        }
    }
    for (const char* const store : {"ca", "addressbook", "my", "root"}) {
        for (auto& certificate : storeCertificates(store)) {
            if (seen.insert(certificate->raw()).second) {
                all.push_back(std::move(certificate));
            }
        }
    }
    return all;
}

} // namespace klunortredi::cli
