#pragma once

/// Certificates and revocation lists that the user or a message brings, as a store that a chain engine takes.

#include "crypto/wincrypt/handles.hpp"

#include <optional>
#include <string>
#include <vector>

namespace klunortredi::cli {

/// A store in memory. No entry point of the CryptoAPI adds a CRL to a store: they go into a SignedData without signers
/// (RFC 5652, 5.1), whose store the service opens.
class ChainMaterial {
public:
    /// DER of each. Throws SystemException when the service does not take them.
    ChainMaterial(const std::vector<std::string>& certificates, const std::vector<std::string>& crls);

    /// The store's handle, which stays this object's; null when there is nothing in it.
    [[nodiscard]] void* store() const;

private:
    orvik::plugin::wincrypt::HCRYPTMSG message_;
    std::optional<orvik::plugin::wincrypt::HCERTSTORE> store_;
};

/// Whether the process works with the embedded service.
bool usesEmbeddedService();
/// Throws Failure (exit 4), naming the option, when the process works with another service than the embedded one.
void requireEmbeddedService(const std::string& option);

} // namespace klunortredi::cli
