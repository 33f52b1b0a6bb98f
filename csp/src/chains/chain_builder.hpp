#pragma once

/// Building and checking of certificate chains (RFC 5280, section 6) over OpenSSL, from the certificates and CRLs of
/// the stores alone: nothing is ever fetched.

#include "stores/store.hpp"

#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace klunortredi::csp {

enum class RevocationCheck {
    None,
    EndCertificate,
    Chain,
    ChainExcludeRoot, ///< all but the self-signed end
};

/// Which usages the chain must allow: all of a list, or any of it.
struct RequestedUsage {
    std::vector<std::string> oids;
    bool any = false;
};

struct ChainRequest {
    std::shared_ptr<Certificate> certificate;
    std::shared_ptr<OpenStore> additional; ///< more intermediates and CRLs; may be null
    std::time_t time = 0;
    RevocationCheck revocation = RevocationCheck::None;
    RequestedUsage usage;
};

/// One certificate of a chain with the CERT_TRUST_... bits that lie with it.
struct ChainElement {
    std::shared_ptr<Certificate> certificate;
    std::shared_ptr<OpenStore> store; ///< where it was found; null for the certificate asked about
    DWORD errors = 0;
    DWORD information = 0;
    /// Usages that this certificate and those above it allow; nothing when none of them restricts it.
    std::optional<std::vector<std::string>> usage;
};

struct BuiltChain {
    std::vector<ChainElement> elements; ///< the certificate first, then its issuers
    DWORD errors = 0;                   ///< of the chain itself and all its elements
};

/// Trust begins in store "root" alone; issuers are looked for there, in the additional store, in "ca", "my" and
/// "trust"; what lies in "disallowed" is distrusted. Problems are no errors: they are bits of the result.
BuiltChain buildChain(const ChainRequest& request);

} // namespace klunortredi::csp
