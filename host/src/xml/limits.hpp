#pragma once

/// What an XML document may hold. Each bound is checked before the work or the memory that it stands for is spent, so
/// that any document is judged or refused within five seconds and 200 MB; honest documents stay far below.

#include <cstddef>

namespace orvik::plugin::xml::internal::limits {

// The document, counted over its octets before a tree is built.
inline constexpr std::size_t documentOctets = 16UL * 1024 * 1024; ///< with the tree this is what 200 MB hold
inline constexpr std::size_t depth = 200;                         ///< libxml2 stops at 256; recursion stays shallow
inline constexpr std::size_t attributesPerElement = 256;          ///< duplicates are looked for pair by pair
inline constexpr std::size_t namespacesInScope = 128;             ///< each name is looked up among them
inline constexpr std::size_t nameOctets = 1024;                   ///< of a name or a namespace declaration
inline constexpr std::size_t distinctNames = 16384;               ///< libxml2's dictionary does not grow beyond
inline constexpr std::size_t treeOctets = 148UL * 1024 * 1024;    ///< estimated memory of the tree

// Estimated octets of libxml2's nodes on a 64-bit machine, with the allocator's share.
inline constexpr std::size_t elementCost = 128;
inline constexpr std::size_t attributeCost = 240; ///< with the text node that holds the value
inline constexpr std::size_t namespaceCost = 112;
inline constexpr std::size_t textCost = 128;

// The signatures, counted over the tree before anything is computed.
inline constexpr std::size_t signatures = 64;
inline constexpr std::size_t referencesPerSignature = 64;
inline constexpr std::size_t references = 256; ///< of all signatures
inline constexpr std::size_t transformsPerReference = 8;
inline constexpr std::size_t certificatesPerSignature = 16;
inline constexpr std::size_t prefixesPerList = 64;          ///< of an InclusiveNamespaces
inline constexpr std::size_t signedInfoOctets = 1UL << 20U; ///< canonical form of a SignedInfo

inline constexpr std::size_t keysTried = 256;                   ///< of all signatures; the largest take 6 ms each
inline constexpr std::size_t timestampsPerSignature = 8;        ///< tokens; an honest one has one or two
inline constexpr std::size_t tokenOctets = 1UL << 20U;          ///< of a time-stamp token, with certificates and CRLs
inline constexpr std::size_t signatureValueOctets = 1UL << 16U; ///< canonical, when a time-stamp is for it

/// Canonical octets that all references of a document may produce. The slowest digest (GOST R 34.11-94) takes about
/// three seconds for as many.
inline constexpr std::size_t canonicalOctets = 48UL * 1024 * 1024;
/// Steps (names looked up, nodes passed) that all canonical forms of a document may take.
inline constexpr std::size_t canonicalSteps = 200UL * 1000 * 1000;

} // namespace orvik::plugin::xml::internal::limits
