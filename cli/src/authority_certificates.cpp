#include "authority_certificates.hpp"

#include <set>
#include <utility>

namespace klunortredi::cli {

std::vector<CertificatePtr> authorityCandidates(const std::vector<std::string>& given,
                                                const std::vector<std::string>& inMessage) {
    std::vector<CertificatePtr> all;
    std::set<std::string> seen;
    const auto add = [&](const std::vector<std::string>& certificates) {
        for (const std::string& der : certificates) {
            if (seen.insert(der).second) {
                all.push_back(certificateFromDer(der));
            }
        }
    };
    add(given);
    for (const char* const store : {"ca", "addressbook", "my", "root"}) {
        for (auto& certificate : storeCertificates(store)) {
            if (seen.insert(certificate->raw()).second) {
                all.push_back(std::move(certificate));
            }
        }
    }
    add(inMessage);
    return all;
}

} // namespace klunortredi::cli
