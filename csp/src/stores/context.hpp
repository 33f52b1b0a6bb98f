#pragma once

/// Certificate contexts: the CERT_CONTEXT that a caller dereferences, and the registry that knows which are alive.

#include "stores/store.hpp"
#include "x509/certificate.hpp"

#include <memory>

namespace klunortredi::csp {

/// What a live context stands for.
struct ContextTarget {
    std::shared_ptr<Certificate> certificate;
    std::shared_ptr<OpenStore> store; ///< null: in no store
};

/// A new context with one reference.
PCCERT_CONTEXT addContext(std::shared_ptr<Certificate> certificate, std::shared_ptr<OpenStore> store);

/// Throws ApiError(ERROR_INVALID_PARAMETER) for a null, stale or foreign pointer, which is never dereferenced. So does
/// every function below.
ContextTarget contextTarget(PCCERT_CONTEXT context);
PCCERT_CONTEXT duplicateContext(PCCERT_CONTEXT context);
/// Gives one reference back; with the last one the CERT_CONTEXT goes.
void freeContext(PCCERT_CONTEXT context);

/// How many live contexts came from an opening of a store.
std::size_t contextsOf(const OpenStore& store);
/// Live contexts of the process.
std::size_t liveContexts();

} // namespace klunortredi::csp
