#include "signer_chains.hpp"

#include "capi/constants.hpp"

#include <algorithm>
#include <map>
#include <optional>
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

/// For --at timestamp: nothing says that the signature was made while the certificate was valid.
Trust withoutTimestamp() {
    Trust trust;
    trust.status = capi::CERT_TRUST_IS_NOT_TIME_VALID;
    trust.statusNames = {"CERT_TRUST_IS_NOT_TIME_VALID"};
    trust.problems = {{"the signature has no valid time-stamp of a trusted authority", "judge it now, without --at"}};
    return trust;
}

std::optional<boost::posix_time::ptime> timeOf(const Signer& signer, const ChainQuery& query,
                                               const ChainOptions& options) {
    if (options.atSigningTime()) {
        return signer.signingTime.is_special() ? std::nullopt : std::optional(signer.signingTime);
    }
    return options.at.empty() || options.atTimestamp() ? provenTime(signer.timestamps) : query.time;
}

bool isTrusted(const Signer& signer) {
    return signer.verdict == SignatureVerdict::valid && signer.trust && signer.trust->trusted;
}

} // namespace

void judgeChains(Verdict& verdict, ChainQuery query, const ChainOptions& options) {
    query.signer = true;
    query.beginRetrieval();
    query.certificates.insert(query.certificates.end(), verdict.certificates.begin(), verdict.certificates.end());
    query.crls.insert(query.crls.end(), verdict.crls.read.begin(), verdict.crls.read.end());
    query.crlsPassedOver = !verdict.crls.passedOver.empty();
    verdict.notChecked.insert(verdict.notChecked.end(), verdict.crls.passedOver.begin(), verdict.crls.passedOver.end());
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
        judgeAuthorities(signer.timestamps, query);
        query.time = timeOf(signer, query, options);
        if (!query.time && options.atTimestamp()) {
            signer.trust = withoutTimestamp();
            continue;
        }
        signer.chainTime = query.time.value_or(boost::posix_time::ptime{});
        const auto key = std::pair(signer.certificate->raw(), signer.chainTime);
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
