#pragma once

/// Chains of the signers of a document.

#include "chain_options.hpp"
#include "requirement.hpp"
#include "verdict.hpp"

namespace klunortredi::cli {

/// Judges the chain of every valid signer, of the authorities of its time-stamps and of its valid counter-signers, with
/// what the user (`query`, made from `options`) and the message bring. Throws what `judgeChain` throws.
///
/// The time is that of --at: the one given, each signer's own statement (signing), or what a time-stamp proves
/// (timestamp; a signer without a valid one of a trusted authority is not trusted). Without --at it is what a
/// time-stamp proves, and now for a signer without such a proof. No time-stamp proves anything about a counter-signer.
///
/// The signers that `requirement` names come first: the processor time for all chains is limited.
void judgeChains(Verdict& verdict, ChainQuery query, const ChainOptions& options, const Requirement& requirement);

/// Whether the required signers are trusted. The document's chain becomes one that decides: that of a signer that is
/// not trusted, when that is why the requirement is not met.
bool decideTrust(Verdict& verdict, const Requirement& requirement);

} // namespace klunortredi::cli
