#pragma once

/// Chains of the signers of a document.

#include "chain_options.hpp"
#include "requirement.hpp"
#include "verdict.hpp"

namespace klunortredi::cli {

/// Judges the chain of every valid signer, with what the user (`query`) and the message bring. `atSigningTime`: each at
/// the time that its signer states. Throws what `judgeChain` throws.
void judgeChains(Verdict& verdict, ChainQuery query, bool atSigningTime);

/// Whether the required signers are trusted. The document's chain becomes one that decides: that of a signer that is
/// not trusted, when that is why the requirement is not met.
bool decideTrust(Verdict& verdict, const Requirement& requirement);

} // namespace klunortredi::cli
