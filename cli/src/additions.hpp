#pragma once

/// Adding of certificates to a store.

#include "certificates.hpp"

#include <nlohmann/json_fwd.hpp>

#include <ostream>
#include <string>
#include <vector>

namespace klunortredi::cli {

/// A certificate that was to be added and what the store had of it before.
struct Addition {
    CertificatePtr certificate;
    CertificatePtr installed; ///< of the same issuer and serial number; may be null

    [[nodiscard]] bool isThere() const { return installed && installed->raw() == certificate->raw(); }
    [[nodiscard]] bool replaces() const { return installed && !isThere(); }
};

/// Adds the certificates to a system store; one that is there stays as it is, with its link to a key. Throws Failure
/// (exit 4), which begins with `what`, when one of them would replace a certificate that has a private key by one of
/// another key: then none is added.
std::vector<Addition> addToStore(const std::vector<CertificatePtr>& certificates, const std::string& store,
                                 const std::string& what);

/// The certificates, each with "outcome" and "replaced" (docs/command.md).
nlohmann::ordered_json toJson(const std::vector<Addition>& additions);
/// One line, and one more for a certificate that was replaced.
void print(std::ostream& out, const Addition& addition, const std::string& store, bool storeWasEmpty = false);

} // namespace klunortredi::cli
