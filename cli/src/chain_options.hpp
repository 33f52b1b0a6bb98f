#pragma once

/// The options by which a user says how chains are judged, shared by `chain` and `verify`.

#include "trust.hpp"

#include <string>
#include <vector>

namespace klunortredi::cli {

struct ChainOptions {
    std::string at;                   ///< --at; empty: now
    std::vector<std::string> with;    ///< --with: files of certificates and CRLs
    std::vector<std::string> anchors; ///< --anchor: files of certificates
    std::string usage;                ///< --usage: OID or name
    bool requireRevocation = false;
    bool offline = false; ///< nothing is retrieved from the network

    /// Whether one of them is given.
    [[nodiscard]] bool any() const {
        return !at.empty() || !with.empty() || !anchors.empty() || !usage.empty() || requireRevocation || offline;
    }
    /// Whether `--at signing` asks for each signer's own signing time.
    [[nodiscard]] bool atSigningTime() const { return at == "signing"; }
    /// Whether `--at timestamp` asks for the time that each signer's time-stamps prove.
    [[nodiscard]] bool atTimestamp() const { return at == "timestamp"; }
};

/// The query that the options make; its files are read. With `--at signing` and `--at timestamp` the time is left to
/// the caller. Throws Failure: exit 2 (a time or a usage that cannot be read), exit 3 (files), exit 4 (`--anchor` with
/// a service other than the embedded one).
ChainQuery chainQuery(const ChainOptions& options);

} // namespace klunortredi::cli
