#pragma once

/// A certificate's chain, judged by the service and by the command's own rules of usage.

#include "certificates.hpp"

#include "orvik/plugin/crypto/i_certificate.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace klunortredi::cli {

class ChainMaterial;

/// What is asked about a certificate.
struct ChainQuery {
    std::vector<std::string> certificates; ///< DER of further issuers that may stand in the chain; none is trusted
    std::vector<std::string> crls;         ///< DER of further revocation lists
    bool crlsPassedOver = false;           ///< there are more, which were not read: no status is good then
    /// DER of the only certificates that are trusted, instead of those of store root. Only with the embedded service.
    std::optional<std::vector<std::string>> anchors;
    std::optional<boost::posix_time::ptime> time; ///< UTC; none: now
    std::string usage;                            ///< OID of an extended key usage; empty: none is required
    bool requireRevocation = false;               ///< a revocation status that is not known is an error
    bool offline = true;                          ///< nothing is retrieved from the network
    /// When retrievals end; chains are judged offline after it.
    std::chrono::steady_clock::time_point retrievalEnd{};
    /// Begins the time for retrievals of the chains of one certificate or document.
    void beginRetrieval() { retrievalEnd = std::chrono::steady_clock::now() + std::chrono::seconds(30); }
    /// Processor time of this thread at which no further chain is judged; none: no limit.
    std::optional<std::chrono::nanoseconds> workEnd{};
    /// Begins the time for the chains of one document: a message has up to 256 signers, each with a chain that may take
    /// the service as long as its limits allow.
    void beginDocument();
    /// Decodes `certificates`, `crls` and `anchors` once for further chains, and empties the lists.
    void keepMaterial();
    std::shared_ptr<const ChainMaterial> additional{};     ///< kept of `certificates` and `crls`; null: not kept
    std::shared_ptr<const ChainMaterial> anchorMaterial{}; ///< kept of `anchors`; null: not kept
    bool signer = false; ///< the certificate signed a document: its usages are judged for that (signer_usage.hpp)
};

/// Whether a certificate is revoked, by the revocation lists at hand and what was retrieved.
struct Revocation {
    enum class Status : std::uint8_t { good, revoked, unknown };
    Status status = Status::unknown;
    std::string since;  ///< RFC 3339 UTC; empty when it is not revoked or no list states the time
    std::string reason; ///< in words; empty when none is stated
    /// Revoked because the key may be in other hands, or without a reason: what it signed earlier is in doubt too.
    bool keyInDoubt = false;
};

/// One thing that is wrong, as sentences for a person.
struct Problem {
    std::string what;
    std::string next; ///< what to do; may be empty
};

/// One certificate of the chain.
struct TrustElement {
    CertificatePtr certificate;
    std::uint32_t status = 0;             ///< CERT_TRUST_... error bits
    std::vector<std::string> statusNames; ///< of `status`, the gravest first
    Revocation revocation;
    std::vector<std::string> weak; ///< what is weak about its key and its signature, in words
    std::vector<Problem> problems;
    bool searchLimited = false; ///< limits kept the service from looking at every possible issuer
};

struct Trust {
    bool trusted = false;
    std::uint32_t status = 0;
    std::vector<std::string> statusNames{}; ///< of every status bit, the gravest first
    std::vector<TrustElement> elements{};   ///< the certificate first, then its issuers
    Revocation revocation{};                ///< revoked: any of them is; good: all but the trusted root are
    std::vector<Problem> problems{};        ///< of the chain as a whole
};

/// Judges the chain with what lies on this machine and in the query and, unless offline, what its certificates name on
/// the network. After the query's `workEnd` the chain is not trusted, without being looked at. Throws SystemException
/// when the service cannot judge at all, Failure (exit 4) for anchors with a service other than the embedded one.
Trust judgeChain(const orvik::plugin::crypto::ICertificate& certificate, const ChainQuery& query);

/// Fields trusted, status, status_names, revocation, weak, elements.
nlohmann::ordered_json toJson(const Trust& trust);
/// "trusted", or "not trusted: " and the first reason in words.
std::string describe(const Trust& trust);
/// "good", "revoked since TIME (reason)" or "not known".
std::string describe(const Revocation& revocation);

} // namespace klunortredi::cli
