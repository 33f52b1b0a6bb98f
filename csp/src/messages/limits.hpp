#pragma once

/// What a message may cost. A message comes from a stranger, and all of it is read before any signature is checked.

#include "asn1/limits.hpp"

#include <cstddef>
#include <cstdint>

namespace klunortredi::csp::limits {

/// Octets kept of certificates, CRLs and signer infos together. The largest bundles in use (national lists of
/// certificates and CRLs) stay below 10 MiB; twice this still fits in what a verification may take.
inline constexpr std::size_t retainedOctets = 16U << 20U;

/// Octets of one object identifier, version or algorithm identifier: the longest in use have under 100.
inline constexpr std::size_t smallElement = 4096;

/// Digest algorithms listed. Each known one costs a pass over the content; there are fewer than ten.
inline constexpr std::size_t digestAlgorithms = 32;

/// Signers. Each costs a signature check; documents with more than a few dozen signatures are not made.
inline constexpr std::size_t signers = 256;

/// Certificates, and CRLs. The largest published test bundle has about 400.
inline constexpr std::size_t certificates = 4096;

/// Octets of one certificate. Each signer that names it by its hash costs a pass over it; certificates have under 10
/// KiB.
inline constexpr std::size_t certificate = 128U << 10U;

/// Octets of the signed attributes of one signer: each try with a certificate hashes them. Those in use have under 10
/// KiB.
inline constexpr std::size_t signedAttributes = 256U << 10U;

/// Octets of a signature value: each counter-signature hashes it. The longest standardised ones have under 50 KB.
inline constexpr std::size_t signatureValue = 64U << 10U;

/// Extensions of one certificate. Each costs ten times its smallest encoding when decoded; certificates have under 20.
inline constexpr int extensions = 128;

/// Attributes of one set, signed or unsigned, and values of all attributes of the set together. Archived signatures
/// with many time-stamps have under 50; an encoding of two octets costs 60 when decoded.
inline constexpr std::size_t attributes = 256;
inline constexpr std::size_t attributeValues = 256;

/// Counter-signatures of one signer, those of counter-signatures included. Each costs a signature check.
inline constexpr std::size_t counterSignatures = 16;

/// Certificates of one issuer and serial number that are tried for one signer; an honest message has one.
inline constexpr std::size_t sameNamedCertificates = 4;

/// Recipients of enveloped data, each key of a key agreement counted. Mailing lists encrypt to the list, not to its
/// members; only the one recipient that is asked for costs a private-key operation.
inline constexpr std::size_t recipients = 4096;

/// Octets of one RecipientInfo: a key agreement holds a key for each of its recipients, about 200 octets each.
inline constexpr std::size_t recipientInfo = 1U << 20U;

/// Octets of an encrypted key, and of an originator's public key. RSA of 16,384 bits has 2,048.
inline constexpr std::size_t encryptedKey = 8192;

/// Octets of a message that is taken or made in one piece: the interface tells sizes in 32 bits.
inline constexpr std::uint64_t onePiece = 0xFFFFFFFF;

} // namespace klunortredi::csp::limits
