#include "timestamp_verdict.hpp"

#include "printable.hpp"
#include "text.hpp"
#include "timestamp_glue.hpp"
#include "verdict_words.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
using orvik::plugin::crypto::cadest::TimestampVerdict;
using orvik::plugin::wincrypt::tools::SignatureVerdict;

/// Time-stamps of one document that are judged. Each costs two signature checks; archived documents have a few.
constexpr std::size_t judgedAtMost = 64;

/// id-kp-timeStamping (RFC 5280, 4.2.1.12).
constexpr const char* timeStamping = "1.3.6.1.5.5.7.3.8";

SignatureVerdict verdictOf(TimestampVerdict::Result result) {
    switch (result) {
    case TimestampVerdict::Result::valid:
        return SignatureVerdict::valid;
    case TimestampVerdict::Result::invalid:
        return SignatureVerdict::invalid;
    default:
        return SignatureVerdict::unknown;
    }
}

using CertificateSource = TimestampReader::CertificateSource;

Timestamp judged(std::string_view token, std::string_view octets, const CertificateSource& outside) {
    const orvik::plugin::timestamp_glue::WincryptTimestampTools tools;
    TimestampVerdict verdict = tools.judge({token.data(), token.size()}, {octets.data(), octets.size()}, outside);
    Timestamp timestamp{verdictOf(verdict.result),
                        verdict.reason,
                        verdict.time,
                        verdict.authority,
                        verdict.serialNumber,
                        verdict.policy,
                        verdict.imprintAlgorithm,
                        weaknessesOf({verdict.imprintAlgorithm, verdict.digestAlgorithm}, verdict.authority.get()),
                        std::move(verdict.certificates),
                        std::move(verdict.crls),
                        {}};
    if (const auto broken = brokenReason(timestamp.weak)) {
        timestamp.verdict = SignatureVerdict::invalid;
        timestamp.reason = *broken;
    }
    return timestamp;
}

Timestamp notJudged(const std::string& reason) {
    Timestamp timestamp{};
    timestamp.verdict = SignatureVerdict::unknown;
    timestamp.reason = reason;
    return timestamp;
}

bool hasKeyInDoubt(const Trust& trust) {
    return std::any_of(trust.elements.begin(), trust.elements.end(), [](const TrustElement& element) {
        return element.revocation.status == Revocation::Status::revoked && element.revocation.keyInDoubt;
    });
}

/// The authority's chain at the token's time. Who has taken its key can state any time, so a revocation of today for
/// that reason, or for none that is named, holds for all its tokens (RFC 3161, 4, 1).
Trust trustOfAuthority(const Timestamp& timestamp, ChainQuery query) {
    query.time = timestamp.time;
    Trust then = judgeChain(*timestamp.authority, query);
    if (!then.trusted) {
        return then;
    }
    query.time.reset();
    Trust now = judgeChain(*timestamp.authority, query);
    return hasKeyInDoubt(now) ? now : then;
}

bool isTrusted(const Timestamp& timestamp) {
    return timestamp.verdict == SignatureVerdict::valid && timestamp.trust && timestamp.trust->trusted;
}

bool isValid(const Timestamp& timestamp) {
    return timestamp.verdict == SignatureVerdict::valid;
}

/// The earliest of those that `counts` picks; null without any.
const Timestamp* earliest(const std::vector<Timestamp>& timestamps, bool (*counts)(const Timestamp&)) {
    const Timestamp* found = nullptr;
    for (const Timestamp& timestamp : timestamps) {
        if (counts(timestamp) && (found == nullptr || timestamp.time < found->time)) {
            found = &timestamp;
        }
    }
    return found;
}

} // namespace

std::vector<Timestamp> TimestampReader::read(const std::vector<std::string_view>& tokens, std::string_view octets) {
    std::vector<Timestamp> timestamps;
    for (const std::string_view token : tokens) {
        if (judged_ == judgedAtMost) {
            timestamps.push_back(notJudged("the document has more time-stamps than are judged"));
            break;
        }
        ++judged_;
        timestamps.push_back(judged(token, octets, [this] { return outside(); }));
    }
    return timestamps;
}

const std::vector<CertificatePtr>& TimestampReader::outside() {
    if (!found_) {
        found_ = outside_ ? outside_() : std::vector<CertificatePtr>{};
    }
    return *found_;
}

void judgeAuthorities(std::vector<Timestamp>& timestamps, const ChainQuery& query) {
    ChainQuery ofAuthority = query;
    ofAuthority.usage = timeStamping;
    ofAuthority.signer = false;
    for (Timestamp& timestamp : timestamps) {
        if (!isValid(timestamp)) {
            continue;
        }
        timestamp.trust = trustOfAuthority(timestamp, ofAuthority);
    }
}

std::optional<boost::posix_time::ptime> provenTime(const std::vector<Timestamp>& timestamps) {
    const Timestamp* const proof = earliest(timestamps, isTrusted);
    return proof == nullptr ? std::nullopt : std::optional(proof->time);
}

bool anyUnknown(const std::vector<Timestamp>& timestamps) {
    return std::any_of(timestamps.begin(), timestamps.end(),
                       [](const Timestamp& one) { return one.verdict == SignatureVerdict::unknown; });
}

const Timestamp* deciding(const std::vector<Timestamp>& timestamps) {
    if (timestamps.empty()) {
        return nullptr;
    }
    if (const Timestamp* const trusted = earliest(timestamps, isTrusted)) {
        return trusted;
    }
    const Timestamp* const valid = earliest(timestamps, isValid);
    return valid != nullptr ? valid : &timestamps.front();
}

std::optional<StrictRefusal> strictRefusal(const std::vector<Timestamp>& timestamps) {
    for (const Timestamp& timestamp : timestamps) {
        if (!isValid(timestamp)) {
            return StrictRefusal{timestamp.verdict, "time-stamp: " + timestamp.reason};
        }
        if (!timestamp.weak.empty()) {
            return StrictRefusal{SignatureVerdict::invalid, "time-stamp: " + describe(timestamp.weak.front())};
        }
    }
    return std::nullopt;
}

Json toJson(const Timestamp* timestamp) {
    if (timestamp == nullptr) {
        return nullptr;
    }
    const bool known = timestamp->authority != nullptr;
    return {{"time", text::time(timestamp->time)},
            {"valid", truth(timestamp->verdict)},
            {"reason", timestamp->reason},
            {"authority", known ? subjectOf(*timestamp->authority) : std::string{}},
            {"thumbprint", known ? thumbprintOf(*timestamp->authority) : std::string{}},
            {"serial", timestamp->serial},
            {"policy", timestamp->policy},
            {"imprint_algorithm", timestamp->imprintAlgorithm},
            {"weak", weakList(timestamp->weak)},
            {"chain", timestamp->trust ? toJson(*timestamp->trust) : Json(nullptr)}};
}

Json toJson(const std::vector<Timestamp>& timestamps) {
    Json list = Json::array();
    std::transform(timestamps.begin(), timestamps.end(), std::back_inserter(list),
                   [](const Timestamp& timestamp) { return toJson(&timestamp); });
    return list;
}

void print(std::ostream& out, const std::vector<Timestamp>& timestamps) {
    for (const Timestamp& timestamp : timestamps) {
        const std::string time = text::time(timestamp.time);
        out << "  time-stamp   " << (time.empty() ? std::string("without a readable time") : time);
        if (timestamp.authority) {
            out << " by " << titleOf(*timestamp.authority);
        }
        out << ": " << spokenWord(timestamp.verdict)
            << (timestamp.reason.empty() ? std::string{} : ": " + printable(timestamp.reason));
        if (timestamp.trust) {
            out << ", authority " << printable(describe(*timestamp.trust));
        }
        out << '\n';
        for (const Weakness& weakness : timestamp.weak) {
            out << "  weak: time-stamp: " << describe(weakness) << '\n';
        }
    }
}

} // namespace klunortredi::cli
