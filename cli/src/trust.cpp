#include "trust.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate_verifier.hpp"
#include "text.hpp"

#include <nlohmann/json.hpp>

namespace klunortredi::cli {

Trust judgeChain(const orvik::plugin::crypto::ICertificate& certificate) {
    const orvik::plugin::wincrypt::CertificateVerifier verifier(certificate);
    Trust trust;
    trust.trusted = verifier.validateChain(capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY |
                                           capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL);
    trust.status = verifier.status();
    // The verifier names the gravest bit; taking that one away each time names them all, gravest first.
    constexpr unsigned bits = 32;
    for (std::uint32_t left = trust.status; left != 0;) {
        const std::string gravest = verifier.statusString(static_cast<long>(left));
        if (gravest.empty()) {
            break;
        }
        trust.statusNames.push_back(gravest);
        for (unsigned i = 0; i < bits; ++i) {
            const std::uint32_t bit = std::uint32_t{1} << i;
            if ((left & bit) != 0 && verifier.statusString(static_cast<long>(bit)) == gravest) {
                left &= ~bit;
            }
        }
    }
    return trust;
}

nlohmann::ordered_json toJson(const Trust& trust) {
    return {{"trusted", trust.trusted}, {"status", trust.status}, {"status_names", trust.statusNames}};
}

std::string describe(const Trust& trust) {
    return trust.trusted ? "trusted" : "not trusted: " + text::joined(trust.statusNames);
}

} // namespace klunortredi::cli
