#pragma once

namespace orvik::plugin::crypto {
class ICertificate;
}

namespace orvik::plugin::wincrypt {

/// The certificate must be linked to a key container: its property CERT_KEY_PROV_INFO_PROP_ID names a provider and a
/// container. Throws CryptoException noContainer or noProvider as of function "validateCertificate" of `file`.
void requireContainerLink(const crypto::ICertificate& certificate, const char* file);

} // namespace orvik::plugin::wincrypt
