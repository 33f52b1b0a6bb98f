#include "signer_chains.hpp"

#include "capi/constants.hpp"

#include <algorithm>
#include <map>
#include <utility>

namespace klunortredi::cli {

namespace {

/// A key that nobody certified has no chain at all.
Trust withoutCertificate() {
    Trust trust;
    trust.status = capi::CERT_TRUST_IS_PARTIAL_CHAIN;
    trust.statusNames = {"CERT_TRUST_IS_PARTIAL_CHAIN"};
    return trust;
}

bool isTrusted(const Signer& signer) {
    return signer.verdict == SignatureVerdict::valid && signer.trust && signer.trust->trusted;
}

} // namespace

void judgeChains(Verdict& verdict, ChainQuery query, bool atSigningTime) {
    query.signer = true;
    query.certificates.insert(query.certificates.end(), verdict.certificates.begin(), verdict.certificates.end());
    query.crls.insert(query.crls.end(), verdict.crls.begin(), verdict.crls.end());
    // One certificate at one time has one chain, however many signatures it made.
    std::map<std::pair<std::string, boost::posix_time::ptime>, Trust> judged;
    for (Signer& signer : verdict.signers) {
        if (signer.verdict != SignatureVerdict::valid) {
            continue;
        }
        if (!signer.certificate) {
            signer.trust = withoutCertificate();
            continue;
        }
        const bool stated = atSigningTime && !signer.signingTime.is_special();
        if (atSigningTime) {
            query.time = stated ? std::optional(signer.signingTime) : std::nullopt;
        }
        const auto key = std::pair(signer.certificate->raw(), stated ? signer.signingTime : boost::posix_time::ptime{});
        auto known = judged.find(key);
        if (known == judged.end()) {
            known = judged.emplace(key, judgeChain(*signer.certificate, query)).first;
        }
        signer.trust = known->second;
    }
}

bool decideTrust(Verdict& verdict, const Requirement& requirement) {
    const auto judge = [](const Signer& signer) {
        return isTrusted(signer) ? SignatureVerdict::valid : SignatureVerdict::invalid;
    };
    const bool trusted = requirement.decide(verdict.signers, judge).verdict == SignatureVerdict::valid;
    const auto deciding = std::find_if(verdict.signers.begin(), verdict.signers.end(), [&](const Signer& signer) {
        return signer.trust && signer.trust->trusted == trusted;
    });
    if (deciding != verdict.signers.end()) {
        verdict.trust = deciding->trust;
    }
    return trusted;
}

} // namespace klunortredi::cli
