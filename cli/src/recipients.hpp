#pragma once

/// Whom a message is encrypted for.

#include "certificates.hpp"
#include "content_ciphers.hpp"

#include <string>
#include <vector>

namespace klunortredi::cli {

/// The certificate that `to` means: a file, or a certificate of store my, addressbook or ca. Throws Failure as
/// readCertificate() and findCertificate() do.
CertificatePtr findRecipient(const std::string& to);

/// Why nobody should encrypt for the certificate, in words: it is expired or not yet valid, or its key usage is not for
/// encryption (none of keyEncipherment, dataEncipherment and keyAgreement). Empty when it is fit. A certificate without
/// key usage may be used for everything (RFC 5280, 4.2.1.3).
std::string unfitnessToEncryptFor(const orvik::plugin::crypto::ICertificate& certificate);

/// The cipher for these recipients: that of the name, or by default Kuznyechik CTR-ACPKM-OMAC for GOST R 34.10-2012
/// keys, GOST 28147-89 when there is one of GOST R 34.10-2001, AES-256-GCM for RSA keys. Throws Failure: exit 2 for
/// GOST and RSA recipients together, or a cipher of the other kind; exit 4 for keys that are neither.
const ContentCipher& chooseCipher(const std::vector<CertificatePtr>& recipients, const std::string& name);

} // namespace klunortredi::cli
