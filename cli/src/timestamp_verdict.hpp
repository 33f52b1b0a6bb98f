#pragma once

/// RFC 3161 time-stamps on signatures. A token is not signed by the signer: whoever has a signature can add one. A bad
/// token therefore never makes a signature invalid, unless the user asks for strict checks, and a good one proves only
/// that the signature was there at its time.

#include "certificates.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "trust.hpp"
#include "weak.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace klunortredi::cli {

struct Timestamp {
    orvik::plugin::wincrypt::tools::SignatureVerdict verdict;
    std::string reason;                    ///< why it is not valid; empty when it is
    boost::posix_time::ptime time;         ///< UTC; not set when the token cannot be read
    CertificatePtr authority;              ///< whose key signed it; null when its certificate is missing
    std::string serial;                    ///< of the token, hexadecimal
    std::string policy;                    ///< OID
    std::string imprintAlgorithm;          ///< OID
    std::vector<Weakness> weak;            ///< of its digests and the authority's key
    std::vector<std::string> certificates; ///< DER of those that the token carries
    std::vector<std::string> crls;         ///< likewise
    std::optional<Trust> trust;            ///< of the authority, at the token's time, when chains were judged
};

/// Judges the time-stamps of one document, and counts them: the work that a document can cause is bounded.
class TimestampReader {
public:
    /// Certificates among which the authority's is looked for when a token does not carry it; asked for once at most.
    using CertificateSource = std::function<std::vector<CertificatePtr>()>;
    explicit TimestampReader(CertificateSource outside = {}) : outside_(std::move(outside)) {}

    /// The judged time-stamps of one signature whose value is `octets` (for XML: what the time-stamp covers), in the
    /// order of `tokens`. Past the limit of a document one entry that is not judged stands for the rest.
    std::vector<Timestamp> read(const std::vector<std::string_view>& tokens, std::string_view octets);

private:
    [[nodiscard]] const std::vector<CertificatePtr>& outside();

    CertificateSource outside_;
    std::optional<std::vector<CertificatePtr>> found_; ///< what it gave
    std::size_t judged_ = 0;                           ///< of the signatures so far
};

/// Judges the chain of each valid time-stamp's authority for time-stamping, at the token's time, and now where its key
/// may be in other hands. What the tokens carry stands in `query` already. Throws what `judgeChain` throws.
void judgeAuthorities(std::vector<Timestamp>& timestamps, const ChainQuery& query);

/// The earliest time that a valid time-stamp of a trusted authority proves; nothing without one.
std::optional<boost::posix_time::ptime> provenTime(const std::vector<Timestamp>& timestamps);

/// Whether one of them was not judged.
bool anyUnknown(const std::vector<Timestamp>& timestamps);

/// The one that stands for all: the earliest that is valid, of a trusted authority where chains were judged; else the
/// first. Null without any.
const Timestamp* deciding(const std::vector<Timestamp>& timestamps);

/// Why strict checks refuse the signature: the first time-stamp that is not valid, or that is weak. Nothing when none
/// is.
struct StrictRefusal {
    orvik::plugin::wincrypt::tools::SignatureVerdict verdict; ///< invalid, or unknown
    std::string reason;
};
std::optional<StrictRefusal> strictRefusal(const std::vector<Timestamp>& timestamps);

/// null for a null pointer.
nlohmann::ordered_json toJson(const Timestamp* timestamp);
nlohmann::ordered_json toJson(const std::vector<Timestamp>& timestamps);
/// A line for each, and for what is weak about it.
void print(std::ostream& out, const std::vector<Timestamp>& timestamps);

} // namespace klunortredi::cli
