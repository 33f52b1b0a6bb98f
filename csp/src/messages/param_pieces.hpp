#pragma once

/// Pieces of the structures that message parameters are delivered in.

#include "core/output.hpp"
#include "messages/cms_types.hpp"
#include "messages/signer_info.hpp"

#include <vector>

namespace klunortredi::csp::pieces {

/// Fills the CRYPT_ALGORITHM_IDENTIFIER at `offset`.
void algorithm(StructBuilder& builder, std::size_t offset, const AlgorithmId& value);
/// Fills the CRYPT_ATTRIBUTES at `offset`.
void attributes(StructBuilder& builder, std::size_t offset, const std::vector<Attribute>& values);
/// Issuer and serial number; a certificate named by key identifier gets a name of one RDN that holds it, and serial 0.
SignerId asIssuerAndSerial(const SignerId& id);

} // namespace klunortredi::csp::pieces
