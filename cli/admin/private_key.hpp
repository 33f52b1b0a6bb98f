#pragma once

/// Private keys as other programs write them, made into keys of the service.

#include "core/bytes.hpp"
#include "core/ossl.hpp"
#include "keys/providers.hpp"

namespace klunortredi::admin {

struct PrivateKey {
    csp::ossl::Pkey key;
    const csp::ProviderRecord* provider; ///< whose containers hold such keys
    csp::Bytes publicKeyInfo;            ///< DER SubjectPublicKeyInfo
};

/// The key of a PrivateKeyInfo (RFC 5208). GOST keys are taken as little-endian octets, as an INTEGER or masked
/// (R 50.1.112-2016), under the signature's or the agreement's OID. Whether the octets were understood shows only
/// against a certificate: some forms differ in nothing but their order. Throws cli::Failure: exit 3 (not well-formed),
/// exit 4 (an algorithm, parameter set or size that the service does not keep).
PrivateKey decodePrivateKey(PKCS8_PRIV_KEY_INFO* info);

/// Whether a certificate is of that key.
bool belongsTo(X509* certificate, const PrivateKey& key);

csp::Bytes encodeCertificate(const X509* certificate);

} // namespace klunortredi::admin
