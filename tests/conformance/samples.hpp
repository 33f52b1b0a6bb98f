#pragma once

/// Certificates and messages that no service made: RSA 2048 with SHA-256, valid from 2020 to 2099, by openssl.

#include "fixture.hpp"

namespace conformance::samples {

const Bytes& root();         ///< self-signed CA "Conformance Root", serial 0x1000
const Bytes& intermediate(); ///< CA "Conformance Intermediate" under it, serial 0x1001
/// C=RU, O=Conformance, OU=Tests, CN=Conformance Leaf under the intermediate one, serial 0x1002; digitalSignature,
/// clientAuth and emailProtection, subject alternative name leaf@example.org.
const Bytes& leaf();

inline constexpr std::string_view content = "conformance";
/// CMS SignedData of `content` by the leaf, with the leaf's and the intermediate certificate, SHA-256, signed
/// attributes.
const Bytes& attached();
/// The same without the content and the intermediate certificate.
const Bytes& detached();

/// A moment when the certificates are valid: 2026-01-01 00:00:00 UTC.
inline constexpr FILETIME moment{0x92810000, 0x01DC7AB1};

/// A context of one of the certificates; throws when the service refuses it.
Certificate contextOf(const Bytes& der);

} // namespace conformance::samples
