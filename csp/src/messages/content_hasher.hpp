#pragma once

/// The hash values of a message's content.

#include "core/bytes.hpp"
#include "crypto/digest.hpp"
#include "messages/attribute_shape.hpp"

#include <string_view>
#include <vector>

namespace klunortredi::csp {

/// Hashes content with several algorithms at once, and watches its shape.
class ContentHasher {
public:
    /// Adds the algorithm of that OID. One that is unknown or there already changes nothing; of one that this machine
    /// does not offer (the GOST engine is missing) only that is remembered.
    void add(std::string_view oid);
    void update(ByteView piece);
    /// No more content comes.
    void finish();
    /// The value under the algorithm of that OID, after `finish`. ApiError(CRYPT_E_UNKNOWN_ALGO) when it was not added
    /// or OpenSSL does not have it, NTE_PROV_TYPE_NOT_DEF when its engine is missing.
    [[nodiscard]] const Bytes& value(std::string_view oid) const;
    /// Whether the content could be somebody's signed attributes; see AttributeShape.
    [[nodiscard]] bool looksLikeAttributes() const { return shape_.matches(); }
    /// Whether both have the same values under the same algorithms.
    friend bool operator==(const ContentHasher& a, const ContentHasher& b);

private:
    struct Hash {
        Digest digest;
        Bytes value;
    };
    struct Missing {
        std::string_view oid; ///< of the table of algorithms
        DWORD error;
    };
    std::vector<Hash> hashes_;
    std::vector<Missing> missing_;
    AttributeShape shape_;
};

} // namespace klunortredi::csp
