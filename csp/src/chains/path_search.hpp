#pragma once

/// Which ways lead from a certificate up to a trust anchor. The search follows signatures that verify, under counted
/// budgets, in an order that depends on the certificates alone (docs/trust-policy.md); it judges nothing else.

#include "chains/chain_sources.hpp"

#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace klunortredi::csp {

/// The certificate asked about first, then each one's issuer.
struct Path {
    std::vector<const Candidate*> certificates;
    std::vector<bool> preferred; ///< by element: several issuers fit, the next element was chosen
    bool anchored = false;       ///< the last is a trust anchor
    bool cyclic = false;         ///< the last one's only issuers stand in the path already
};

/// Work that a search may cost: hostile sets of certificates end in well under a second.
struct PathBudget {
    std::size_t steps = 512;           ///< certificates visited, over all paths
    std::size_t signatureChecks = 200; ///< each up to about 2 ms with the GOST engine, more with keys of huge size
    std::size_t paths = 16;            ///< ways that end somewhere
    std::size_t pathSignatures = 256;  ///< of the paths after the first, in the measure of `signatureChecks`
};
inline constexpr std::size_t longestPath = 64; ///< certificates; chains in use have at most five

class PathSearch {
public:
    PathSearch(ChainSources& sources, std::time_t time) : sources_(sources), time_(time) {}

    /// Gives `visit` every path from `target` until it returns false or the budget is used up. At least one path is
    /// given: of `target` alone, if nothing else. Judging a path checks its signatures again, which counts as well.
    void run(const Candidate& target, const std::function<bool(const Path&)>& visit);
    /// Whether a limit kept the search from looking at something: what it did not find may be there.
    [[nodiscard]] bool limited() const noexcept { return limited_; }

private:
    /// The issuers of one certificate, the best first.
    struct Issuers {
        std::vector<const Candidate*> list;
        bool selfSigned = false;
    };

    bool extend(Path& path);
    bool finish(const Path& path);
    /// Whether the budget allows to judge the path's signatures.
    bool affords(const Path& path);
    const Issuers& issuersOf(const Candidate& subject);
    Issuers findIssuers(const Candidate& subject);
    /// Nullopt when the budget does not allow the check.
    std::optional<bool> signedBy(const Candidate& subject, const Candidate& issuer);
    /// The certificates that may be the subject's issuer, the best first.
    struct Candidates {
        std::vector<const Candidate*> list;
        bool complete = true; ///< the limit on certificates of one name left none out
    };
    Candidates candidatesFor(const Candidate& subject);
    [[nodiscard]] bool follows(const Path& path, const Candidate& issuer) const;

    ChainSources& sources_;
    const std::time_t time_;
    PathBudget budget_;
    bool limited_ = false;
    bool visited_ = false; ///< a path was given
    std::map<const Candidate*, Issuers> known_;
    std::function<bool(const Path&)> visit_;
};

} // namespace klunortredi::csp
