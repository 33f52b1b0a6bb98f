#include "authority_certificates.hpp"

#include "crypto/wincrypt/exceptions.hpp"

#include <set>
#include <utility>

namespace klunortredi::cli {

namespace {

/// Null for one that does not decode: somebody may have added it to a message to make its time-stamps unreadable.
CertificatePtr decoded(const std::string& der) {
    try {
        return certificateFromDer(der);
    } catch (const orvik::plugin::crypto::exception::SystemException&) {
        return nullptr;
    }
}

} // namespace

std::vector<CertificatePtr> authorityCandidates(const std::vector<std::string>& given,
                                                const std::vector<std::string>& inMessage) {
    std::vector<CertificatePtr> all;
    std::set<std::string> seen;
    const auto add = [&](const std::vector<std::string>& certificates) {
        for (const std::string& der : certificates) {
            CertificatePtr certificate = seen.insert(der).second ? decoded(der) : nullptr;
            if (certificate) {
                all.push_back(std::move(certificate));
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
