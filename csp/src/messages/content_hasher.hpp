#pragma once

/// The hash values of a message's content.

#include "core/bytes.hpp"
#include "crypto/digest.hpp"

#include <string_view>
#include <vector>

namespace klunortredi::csp {

/// Hashes content with several algorithms at once.
class ContentHasher {
public:
    /// Adds the algorithm of that OID. One that is unknown or there already changes nothing.
    void add(std::string_view oid);
    void update(ByteView piece);
    /// No more content comes.
    void finish();
    /// The value under the algorithm of that OID, after `finish`. ApiError(CRYPT_E_UNKNOWN_ALGO) when it was not added.
    [[nodiscard]] const Bytes& value(std::string_view oid) const;
    /// Whether both have the same values under the same algorithms.
    friend bool operator==(const ContentHasher& a, const ContentHasher& b);

private:
    struct Hash {
        Digest digest;
        Bytes value;
    };
    std::vector<Hash> hashes_;
};

} // namespace klunortredi::csp
