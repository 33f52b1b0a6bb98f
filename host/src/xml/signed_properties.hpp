#pragma once

/// The SignedProperties of XAdES (ETSI EN 319 132-1, section 5.2) that are used here: who signed, and when.

#include "signature_model.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <openssl/x509.h>

#include <string>
#include <vector>

namespace orvik::plugin::xml::internal {

/// How a SigningCertificate or SigningCertificateV2 names the signer's certificate: by its first Cert.
struct NamedCertificate {
    std::string digestMethod; ///< URI
    std::string digest;
    std::string issuerSerial; ///< DER of IssuerSerialV2; empty without one
    std::string serialNumber; ///< decimal, of IssuerSerial; empty without one
};

/// What a signature's SignedProperties say, when a reference covers them.
struct SignedProperties {
    bool present = false;
    std::vector<NamedCertificate> certificates; ///< one of each property that names the signer
    boost::posix_time::ptime signingTime;       ///< UTC; not set when it is not stated or not of the type xsd:dateTime
};

/// Throws Refusal (invalid) when the properties are not of the required form. `targets` are those of the signature's
/// references, in their order.
SignedProperties signedProperties(const SignatureModel& signature, const std::vector<const xmlNode*>& targets);

/// Whether the property names that certificate. Throws Refusal (unknown) for a digest that is not supported.
bool isNamed(const std::string& der, const X509& certificate, const NamedCertificate& name);

} // namespace orvik::plugin::xml::internal
