#pragma once

/// The little DER that OpenSSL's typed decoders do not reach.

#include "core/bytes.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::csp::asn1 {

/// The elements (with their headers) of exactly one DER SEQUENCE; nothing when `der` is not that.
std::optional<std::vector<Bytes>> splitSequence(ByteView der);
/// Dotted text of exactly one DER OBJECT IDENTIFIER; nothing when `der` is not that.
std::optional<std::string> oidText(ByteView der);
/// DER of a dotted OID. Throws ApiError(CRYPT_E_OID_FORMAT) on another text.
Bytes encodeOid(std::string_view dotted);
/// A SEQUENCE around elements encoded already.
Bytes encodeSequence(ByteView body);
/// A BIT STRING of whole octets.
Bytes encodeBitString(ByteView octets);
/// The contents of exactly one DER OCTET STRING; nothing when `der` is not that.
std::optional<Bytes> octetString(ByteView der);
/// Octets of the definite-length SEQUENCE at the start of `data` (header and contents), looking at no more than its
/// header; nothing when that is no valid one or the element is longer than `limit`.
std::optional<std::size_t> sequenceLength(const std::uint8_t* data, std::size_t limit);

} // namespace klunortredi::csp::asn1
