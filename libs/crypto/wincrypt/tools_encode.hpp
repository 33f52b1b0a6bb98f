#pragma once

/// DER of CryptoAPI structures and plain values, made by the service's own encoder.
///
/// Every function throws SystemException when the service refuses. Encoding types are mixed on purpose: the service
/// selects its encoder by the pair of encoding and structure type.

#include "capi/types.h"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/utility/string_view.hpp>

#include <string>

namespace orvik::plugin::wincrypt::tools {

/// UTF8String.
ORVIK_EXPORT std::string encodeString(const std::wstring& text);
/// UTF8String of text that is UTF-8 already.
ORVIK_EXPORT std::string encodeString(boost::string_view text);
ORVIK_EXPORT std::string encodeOctetString(boost::string_view octets);
ORVIK_EXPORT std::string encodeNamValuePair(const CRYPT_ENROLLMENT_NAME_VALUE_PAIR& pair);
ORVIK_EXPORT std::string encodeCertNameInfo(const CERT_NAME_INFO& name);
ORVIK_EXPORT std::string encodeCertKeyAttributesInfo(const CERT_KEY_ATTRIBUTES_INFO& attributes);
ORVIK_EXPORT std::string encodeKeyUsage(const CRYPT_BIT_BLOB& bits);
ORVIK_EXPORT std::string encodeEnhKeyUsage(const CTL_USAGE& usage);
ORVIK_EXPORT std::string encodeAltNameInfo(const CERT_ALT_NAME_INFO& names);
ORVIK_EXPORT std::string encodeCertPoliciesInfo(const CERT_POLICIES_INFO& policies);
ORVIK_EXPORT std::string encodeSubjectNameIdentifier(const CRYPTOAPI_BLOB& keyIdentifier);
ORVIK_EXPORT std::string encodeCspProvider(const CRYPT_CSP_PROVIDER& provider);
/// UTCTime for the years 1950 to 2049, GeneralizedTime for others.
ORVIK_EXPORT std::string encodeTime(const FILETIME& time);
ORVIK_EXPORT std::string encodeInteger(const unsigned int& value);
ORVIK_EXPORT std::string encodeCertExtensions(CERT_EXTENSIONS* extensions);
/// SEQUENCE of the two times, without context tags.
ORVIK_EXPORT std::string encodePrivateKeyUsagePeriod(const CERT_PRIVATE_KEY_VALIDITY& period);
/// Name and version of the operating system as a UTF8String.
ORVIK_EXPORT std::string encodeOsVersion();
/// Client identifier 5, then machine, user and process (MS-WCCE 2.2.2.7.4).
ORVIK_EXPORT std::string encodeClientInfo();

/// The exchange key of the context's container as a CERT_PUBLIC_KEY_INFO whose pointers lead into the string itself:
/// move it, never copy it. Empty when the service reports a size out of bounds.
ORVIK_EXPORT std::string exportPublicKeyInfo(unsigned long hProv);
/// Hash of the public key's bit string on `provider`: a raw key identifier.
ORVIK_EXPORT std::string exportHashInfoFromPubKey(const crypto::IProvider& provider, CERT_PUBLIC_KEY_INFO* info,
                                                  ALG_ID algorithm);
/// Signs `info` with the context's exchange key and encodes the whole request (RFC 2986).
ORVIK_EXPORT std::string encodeRequestInfo(unsigned long hProv, CERT_REQUEST_INFO* info,
                                           CRYPT_ALGORITHM_IDENTIFIER* algorithm);

} // namespace orvik::plugin::wincrypt::tools
