#pragma once

/// Algorithms and key sizes that are broken or no longer permitted: the one table that verdicts are judged by.
/// docs/weak-algorithms.md shows the same rows.

#include "orvik/plugin/export.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

#include <string_view>
#include <vector>

namespace orvik::plugin::crypto {

enum class WeaknessLevel {
    weak,  ///< reported; refused where the caller asks for strict checks
    never, ///< forging is feasible: a signature that depends on it is never valid
};

/// One row of the table. All texts are English, ASCII, and live as long as the library.
struct Weakness {
    const char* name;    ///< what is weak: "SHA-1 digest"
    const char* reason;  ///< why, as the rest of a sentence: "collisions can be computed"
    const char* date;    ///< since when, "2017-02-23"
    WeaknessLevel level; ///< what follows for a verdict
};

/// What a signature depends on.
struct UsedAlgorithms {
    std::string_view digest;    ///< dotted OID of a digest, or of a signature algorithm that names its digest
    std::string_view publicKey; ///< dotted OID of the public key's algorithm
    unsigned keyBits = 0;       ///< size of the key (the modulus of RSA); 0: not known, its size is not judged
};

/// What is weak about these algorithms at that time (UTC), in the order of the table; empty when nothing is. A time
/// that is not set counts as later than every date. Pass a time that somebody other than the signer vouches for: a
/// signer can state any. Keeps no state; any thread.
[[nodiscard]] ORVIK_EXPORT std::vector<Weakness> weaknesses(const UsedAlgorithms& used,
                                                            const boost::posix_time::ptime& time);

/// Every row of the table, for documentation and tests.
[[nodiscard]] ORVIK_EXPORT std::vector<Weakness> allWeaknesses();

} // namespace orvik::plugin::crypto
