#pragma once

#include "signers.hpp"

#include <vector>

namespace klunortredi::cli {

/// What --strict refuses of valid signers: what is weak about the signer or, where chains were judged, about its chain;
/// a time-stamp or a counter-signature that is not valid, or that is weak itself. One that was not judged makes the
/// signer unknown, everything else makes it invalid.
void applyStrict(std::vector<Signer>& signers);

} // namespace klunortredi::cli
