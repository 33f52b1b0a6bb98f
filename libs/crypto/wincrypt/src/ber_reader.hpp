#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <string>

namespace orvik::plugin::wincrypt {

/// Reads the tags and lengths of BER and DER values (X.690, 8.1) from a stream that can seek, and passes over contents
/// without reading them. Tags have one octet, which is all that CMS uses.
///
/// Everything throws SystemException: CRYPT_E_ASN1_EOD where the stream ends too early, CRYPT_E_ASN1_CORRUPT for what
/// is not BER, CRYPT_E_ASN1_LARGE for more than a stated limit, each as of function `function` of "tools_signers".
class BerReader {
public:
    /// The head of a value.
    struct Head {
        unsigned char tag;
        std::optional<std::uint64_t> length; ///< none: indefinite
    };
    /// A constructed value that was entered.
    struct Scope {
        std::optional<std::uint64_t> end; ///< position; none: ended by end-of-contents octets
    };

    explicit BerReader(std::istream& in) : in_(in) {}

    /// Octets passed since the beginning.
    [[nodiscard]] std::uint64_t position() const { return position_; }

    /// Tag of the next value, which stays the next.
    unsigned char peek();
    Head head();
    /// Enters the next value, which has that tag; `head` gets its form.
    Scope enter(unsigned char tag, Head* head = nullptr);
    /// Whether another value follows in `scope`. Passes its end-of-contents octets where it has them.
    bool more(const Scope& scope);
    /// Passes the next value.
    void skip();
    /// The next value, all of its octets, at most `limit`.
    std::string value(std::size_t limit);

private:
    void skipContents(const Head& head, unsigned depth);
    unsigned char octet();
    void pass(std::uint64_t size);

    std::istream& in_;
    std::uint64_t position_ = 0;
    std::string* copy_ = nullptr; ///< gets what is passed, while value() runs
    std::size_t limit_ = 0;
};

/// Tag and length, in the fewest octets (DER).
std::string berHead(unsigned char tag, std::uint64_t length);

} // namespace orvik::plugin::wincrypt
