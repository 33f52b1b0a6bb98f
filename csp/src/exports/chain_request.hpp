#pragma once

/// What a caller of CertGetCertificateChain asks for.

#include "chains/chain_builder.hpp"

namespace klunortredi::csp::exports {

/// What parameters and flags say of a chain; certificate, stores and time are left to the caller. Both forms of the
/// parameters are read, by cbSize. ApiError(ERROR_INVALID_PARAMETER) for a usage or a policy that is not an OID,
/// ERROR_NOT_SUPPORTED for strong-signature parameters.
ChainRequest chainRequest(const CERT_CHAIN_PARA& parameters, DWORD flags);

/// The anchors that a chain engine stands for: those of store "root" (null) for the engines of the current user (null)
/// and of the machine (1). No entry point makes an engine, so a store's handle in its place makes that store's
/// certificates the only anchors: an extension of this service. ApiError(ERROR_INVALID_PARAMETER) for other handles.
std::shared_ptr<OpenStore> anchorsOf(void* engine);

} // namespace klunortredi::csp::exports
