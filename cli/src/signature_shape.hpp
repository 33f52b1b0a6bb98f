#pragma once

#include <string>
#include <string_view>

namespace klunortredi::cli {

/// What the first octets of a file say that it is.
enum class SignatureShape {
    attached, ///< CMS SignedData with its content inside
    detached, ///< CMS SignedData without content
    xml,      ///< an XML document
    unknown,  ///< something else, or too little to tell
};

/// Looks at the head of a signature (RFC 5652, BER or DER): whether the encapsulated content is there decides how the
/// message must be opened. A few hundred octets are enough for any real signature.
SignatureShape signatureShape(std::string_view head);

inline constexpr std::string_view signedDataType = "1.2.840.113549.1.7.2";   ///< RFC 5652, 5
inline constexpr std::string_view digestedDataType = "1.2.840.113549.1.7.5"; ///< RFC 5652, 7

/// The content type of the ContentInfo (RFC 5652, 3) that begins with `head`, dotted; empty for anything else.
std::string contentTypeOf(std::string_view head);

/// What a CMS message (RFC 5652) that is not a signature is, in words ("a digest ..."); empty for SignedData and for
/// what is not such a message.
std::string otherMessage(std::string_view head);

} // namespace klunortredi::cli
