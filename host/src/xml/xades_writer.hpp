#pragma once

/// Writing the properties of XAdES 1.3.2 (ETSI EN 319 132-1). All throw std::bad_alloc.

#include "signature_model.hpp"

#include <string>

namespace orvik::plugin::xml::internal {

/// What SignedProperties say of the signer.
struct SignerStatement {
    std::string signingTime;       ///< xsd:dateTime, UTC
    std::string digestUri;         ///< of the certificate's digest
    std::string certificateDigest; ///< of the certificate's DER
    std::string issuerSerial;      ///< DER of IssuerSerial (RFC 5035)
};

/// Adds an Object with QualifyingProperties (SigningTime, SigningCertificateV2) to a Signature, whose namespace is
/// XML-DSig's, and gives it an identifier. Returns the SignedProperties, whose attribute Id is new, too.
xmlNodePtr addSignedProperties(xmlNodePtr signature, const SignerStatement& statement);

/// The place of a new time-stamp in the signature's properties: an UnsignedSignatureProperties, which is made, with the
/// elements around it, where it is missing. `targets` are those of the signature's references. Throws CryptoException
/// unknownFormat when a reference covers the place, Refusal (invalid) when the signature's properties are not of the
/// required form.
xmlNodePtr timestampPlace(const SignatureModel& signature, const std::vector<const xmlNode*>& targets);

/// Adds a SignatureTimeStamp with the token, which is for the exclusive canonical form, to that place.
void addTimestamp(xmlNodePtr place, const std::string& token);

} // namespace orvik::plugin::xml::internal
