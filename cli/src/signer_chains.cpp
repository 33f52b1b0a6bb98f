#include "signer_chains.hpp"

#include "capi/constants.hpp"
#include "counter_signatures.hpp"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

namespace klunortredi::cli {

namespace {

using Time = boost::posix_time::ptime;

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

/// Adds what the list does not have yet.
void addNew(std::vector<std::string>& list, std::set<std::string_view>& known, const std::vector<std::string>& more) {
    for (const std::string& one : more) {
        if (known.insert(one).second) {
            list.push_back(one);
        }
    }
}

/// What the message and its time-stamps bring, for all chains of the document: it is decoded once.
void gather(const Verdict& verdict, ChainQuery& query) {
    std::set<std::string_view> known; // views into the verdict
    addNew(query.certificates, known, verdict.certificates);
    addNew(query.crls, known, verdict.crls.read);
    for (const Signer& signer : verdict.signers) {
        for (const Timestamp& timestamp : signer.timestamps) {
            addNew(query.certificates, known, timestamp.certificates);
            addNew(query.crls, known, timestamp.crls);
        }
    }
    query.crlsPassedOver = !verdict.crls.passedOver.empty();
    query.keepMaterial();
}

bool isTrusted(const Signer& signer) {
    return signer.verdict == SignatureVerdict::valid && signer.trust && signer.trust->trusted;
}

/// Chains of one document's signers and counter-signers.
class DocumentChains {
public:
    DocumentChains(ChainQuery query, const ChainOptions& options) : query_(std::move(query)), options_(options) {}

    /// Judges the signer's chain, those of its time-stamps' authorities and those of its valid counter-signers.
    void judge(Signer& signer) {
        judgeAuthorities(signer.timestamps, query_);
        judge(signer, provenTime(signer.timestamps));
        judgeCounters(signer.counters);
    }

private:
    void judgeCounters(std::vector<CounterSignature>& counters) {
        for (CounterSignature& counter : counters) {
            if (counter.verdict == SignatureVerdict::valid) {
                judge(counter, std::nullopt); // a time-stamp on the signer's value says nothing of what was added later
            }
            judgeCounters(counter.counters);
        }
    }

    /// `proven` is the time that a time-stamp proves.
    void judge(JudgedSignature& signature, const std::optional<Time>& proven) {
        if (!signature.certificate) {
            signature.trust = withoutCertificate();
            return;
        }
        const std::optional<Time> time = timeOf(signature, proven);
        if (!time && options_.atTimestamp()) {
            signature.trust = withoutTimestamp();
            return;
        }
        signature.chainTime = time.value_or(Time{});
        const auto key = std::pair(signature.certificate->raw(), signature.chainTime);
        auto known = judged_.find(key);
        if (known == judged_.end()) {
            ChainQuery atTime = query_;
            atTime.time = time;
            known = judged_.emplace(key, judgeChain(*signature.certificate, atTime)).first;
        }
        signature.trust = known->second;
    }

    [[nodiscard]] std::optional<Time> timeOf(const JudgedSignature& signature,
                                             const std::optional<Time>& proven) const {
        if (options_.atSigningTime()) {
            return signature.signingTime.is_special() ? std::nullopt : std::optional(signature.signingTime);
        }
        return options_.at.empty() || options_.atTimestamp() ? proven : query_.time;
    }

    ChainQuery query_;
    const ChainOptions& options_;
    /// One certificate at one time has one chain, however many signatures it made.
    std::map<std::pair<std::string, Time>, Trust> judged_;
};

} // namespace

void judgeChains(Verdict& verdict, ChainQuery query, const ChainOptions& options, const Requirement& requirement) {
    query.signer = true;
    query.beginDocument();
    gather(verdict, query);
    verdict.notChecked.insert(verdict.notChecked.end(), verdict.crls.passedOver.begin(), verdict.crls.passedOver.end());
    DocumentChains chains(std::move(query), options);
    for (const bool named : {true, false}) {
        for (Signer& signer : verdict.signers) {
            if (signer.verdict == SignatureVerdict::valid && requirement.names(signer) == named) {
                chains.judge(signer);
            }
        }
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
