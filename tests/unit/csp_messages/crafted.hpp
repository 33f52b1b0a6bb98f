#pragma once

/// Signed messages made by hand, so that each of their parts can be wrong while the signature is right.

#include "signing.hpp"

#include <optional>
#include <string>
#include <vector>

namespace klunortredi::test {

struct Crafted {
    std::vector<Bytes> digestAlgorithms;
    std::string contentType;
    std::optional<Bytes> content;    ///< as the message carries it
    Bytes signedContent;             ///< what the hash is made of
    std::vector<Bytes> certificates; ///< whole CertificateChoices
    std::vector<Bytes> crls;
    Bytes signerId;
    Bytes signerDigest;
    bool hasAttributes = true;
    std::vector<Bytes> attributes;     ///< signed as they stand, in this order
    std::vector<Bytes> sentAttributes; ///< when the message carries them in another form than was signed
    Bytes signatureAlgorithm;
    std::vector<Bytes> unsignedAttributes;
    Bytes behindSignature;               ///< octets added to the signature value
    std::optional<Bytes> signatureValue; ///< in place of the signature
    std::vector<Bytes> moreSignerInfos;  ///< whole SignerInfos after the signer's own
};

/// A message of `signer` with contentType, messageDigest and signing time, in which nothing is wrong.
Crafted honest(const Signer& signer, const Bytes& content);

/// An encoded Attribute with these values.
Bytes attribute(const std::string& oid, const std::vector<Bytes>& values);
/// AlgorithmIdentifier without parameters.
Bytes algorithm(const std::string& oid);

/// The SignerInfo alone, signed.
Bytes encodeSignerInfo(const Signer& signer, const Crafted& crafted);
/// Signs and encodes.
Bytes encode(const Signer& signer, const Crafted& crafted);

} // namespace klunortredi::test
