#pragma once

#include "ossl/owners.hpp"

#include <openssl/x509.h>

#include <string>

namespace orvik::plugin::xml::internal {

/// DER of the IssuerSerial (RFC 5035, section 5) of a certificate. Throws std::runtime_error when OpenSSL cannot encode
/// it.
std::string issuerSerialOf(const X509& certificate);

/// Whether the DER, of at most 64 KiB, is an IssuerSerial with the certificate's serial number and, alone, the name of
/// its issuer (compared as RFC 5280, section 7.1).
bool isIssuerSerialOf(const std::string& der, const X509& certificate);

/// The serial number as a decimal number; empty for one of more octets than is converted.
std::string serialNumberOf(const X509& certificate);

} // namespace orvik::plugin::xml::internal
