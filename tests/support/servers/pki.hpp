#pragma once

#include "support/servers/openssl_objects.hpp"

#include <string>
#include <utility>
#include <vector>

namespace test_servers {

/// A certificate and its private key.
struct Identity {
    Certificate certificate;
    Key key;
};

/// What a certificate is to hold.
struct CertificateDraft {
    std::string name;
    long serial = 1;
    int firstDay = -1; ///< days from now
    int lastDay = 365;
    std::vector<std::pair<int, std::string>> extensions{}; ///< NID and value as in openssl.cnf
};

/// Issues a certificate for the key. `issuer` null: self-signed.
Certificate makeCertificate(const CertificateDraft& draft, const Key& key, const Identity* issuer, KeyKind issuerKind);

/// "-----BEGIN CERTIFICATE-----" and so on.
std::string toPem(const Certificate& certificate);
/// PKCS#8, not encrypted.
std::string toPem(const Key& key);
std::string toDer(const Certificate& certificate);
/// Certificates without a signature: SignedData of certificates only (.p7c).
std::string certificatesOnly(const std::vector<Certificate>& certificates);

} // namespace test_servers
