#pragma once

/// Values of ASN.1's string types, as names and attributes of the CryptoAPI hold them.

#include "asn1/der.hpp"
#include "capi/types.h"
#include "core/output.hpp"

#include <optional>
#include <string>
#include <string_view>

namespace klunortredi::csp {

/// DER of a value of a CERT_RDN_... type (CERT_NAME_VALUE, CERT_RDN_ATTR). A CERT_RDN_UTF8_STRING as `utf8Argument`
/// reads it; CERT_RDN_ENCODED_BLOB is one DER value already; the other types hold the content octets as they are
/// encoded (a BMPString two octets a character, most significant first).
///
/// CRYPT_E_INVALID_NUMERIC_STRING, ..._PRINTABLE_STRING, ..._IA5_STRING for an octet outside the type's alphabet;
/// CRYPT_E_BAD_ENCODE for an unknown type or other malformed content.
Bytes encodeStringValue(DWORD valueType, const CRYPTOAPI_BLOB& value);

/// The same of an attribute of a name, whose CERT_RDN_UTF8_STRING is always counted in octets (`utf8ArgumentInOctets`).
Bytes encodeAttributeValue(DWORD valueType, const CRYPTOAPI_BLOB& value);

/// The same of wide text (X509_UNICODE_NAME_VALUE): cbData counts octets, 0 means up to the terminating zero.
Bytes encodeWideStringValue(DWORD valueType, const CRYPTOAPI_BLOB& value);

/// Fills a value type and its blob from an encoded value; the reverse of `encodeStringValue`. A UTF8String becomes wide
/// characters, cbData their octets, with a terminating zero behind them that is not counted; what is no string becomes
/// CERT_RDN_ENCODED_BLOB with its whole DER. CRYPT_E_ASN1_UTF8 for malformed UTF-8.
void buildStringValue(StructBuilder& builder, std::size_t typeOffset, std::size_t blobOffset,
                      const der::Element& value);

/// The same with wide characters for every string type. CRYPT_E_ASN1_CORRUPT when the string is malformed.
void buildWideStringValue(StructBuilder& builder, std::size_t typeOffset, std::size_t blobOffset,
                          const der::Element& value);

/// The text of a value of any character string type (TeletexString as Latin-1, like most of its writers mean it);
/// nothing for another type or malformed content.
std::optional<std::wstring> textOfString(const der::Element& value);

/// BMPString (16 bits a character: no characters above U+FFFF). CRYPT_E_BAD_ENCODE for what does not fit.
Bytes encodeBmpString(std::wstring_view text);
/// CRYPT_E_ASN1_BADTAG, CRYPT_E_ASN1_CORRUPT.
std::wstring decodeBmpString(const der::Element& value);

/// IA5 content octets of wide text; CRYPT_E_INVALID_IA5_STRING.
Bytes ia5FromWide(std::wstring_view text);

} // namespace klunortredi::csp
