#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvik::plugin::xml::internal {

/// A document as the parser gets it.
struct DecodedDocument {
    std::optional<std::string> converted; ///< UTF-8 of a document that had to be converted
    std::string_view original;            ///< any other document, without its byte order mark
    std::string encoding;                 ///< as declared, "UTF-16" by its first octets; empty when nothing is declared
    const char* parserEncoding = nullptr; ///< the one-octet encoding of the text; null for UTF-8

    /// The document without byte order mark and zero octets.
    [[nodiscard]] std::string_view text() const { return converted ? std::string_view(*converted) : original; }
};

/// Finds out the encoding of a document and converts UTF-16 (which requires its byte order mark, or an XML declaration
/// that names it) to UTF-8. `octets` must outlive the result. Throws CryptoException unknownFormat for a document that
/// does not start with "<", one that holds a zero octet, one whose declaration contradicts its first octets, broken
/// UTF-16, and any encoding that readers do not agree about: only UTF-8, UTF-16 and the one-octet supersets of ASCII
/// are read.
DecodedDocument decodeDocument(std::string_view octets);

} // namespace orvik::plugin::xml::internal
