#pragma once

/// Building and checking of certificate chains (RFC 5280, section 6) over OpenSSL, from the certificates and CRLs of
/// the stores and, where the request allows it, of the network. What is trusted and what is refused:
/// docs/trust-policy.md.

#include "chains/element_revocation.hpp"
#include "stores/store.hpp"

#include <chrono>
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

/// Certificate policies that the chain must be valid for, and how policies are processed (RFC 5280, 6.1.1).
struct RequestedPolicies {
    std::vector<std::string> oids; ///< the user-initial-policy-set; empty: any policy
    bool any = false;              ///< one of them is enough
    bool required = false;         ///< initial-explicit-policy; so too when policies are named
    bool withoutMapping = false;   ///< initial-policy-mapping-inhibit
    bool withoutAnyPolicy = false; ///< initial-any-policy-inhibit
};

/// What may be retrieved from the network for a chain.
struct RequestedRetrieval {
    bool issuers = false;                ///< missing issuers (RFC 5280, 4.2.2.1)
    bool status = false;                 ///< CRLs and status answers of certificates whose status is not known
    std::chrono::milliseconds timeout{}; ///< of all together; 0: the default
    bool anew = false;                   ///< what is kept from before is not used
};

struct ChainRequest {
    std::shared_ptr<Certificate> certificate;
    std::shared_ptr<OpenStore> additional; ///< more intermediates and CRLs; may be null
    std::shared_ptr<OpenStore> anchors;    ///< the only trust anchors; null: those of store "root"
    std::time_t time = 0;
    RevocationCheck revocation = RevocationCheck::None; ///< the certificates whose status must be known
    bool listsAtHand = false; ///< without such a check: apply the CRLs that are there, a missing one is not an error
    RequestedUsage usage;
    RequestedPolicies policies;
    std::optional<DWORD> oldestList; ///< seconds since thisUpdate after which a list says nothing good any more
    RequestedRetrieval retrieval;
    bool lowerQuality = false; ///< return the other chains too
};

/// One certificate of a chain with the CERT_TRUST_... bits that lie with it.
struct ChainElement {
    std::shared_ptr<Certificate> certificate;
    std::shared_ptr<OpenStore> store; ///< where it was found; null for the certificate asked about
    DWORD errors = 0;
    DWORD information = 0;
    /// Usages that this certificate and those above it allow; nothing when none of them restricts it.
    std::optional<std::vector<std::string>> usage;
    std::optional<ElementRevocation> revocation; ///< nothing when no CRL was used
};

struct BuiltChain {
    std::vector<ChainElement> elements; ///< the certificate first, then its issuers
    DWORD errors = 0;                   ///< of the chain itself and all its elements
    DWORD information = 0;              ///< of the chain itself
    std::vector<BuiltChain> lower;      ///< by falling quality; empty unless asked for
};

/// Trust begins in store "root" (or the anchors of the request) alone; issuers are looked for there, in the additional
/// store, in "ca", "my" and "trust"; what lies in "disallowed" is distrusted. Problems are not errors: they are bits of
/// the result. ApiError(ERROR_INVALID_DATA) when something in "disallowed" cannot be read.
BuiltChain buildChain(const ChainRequest& request);

} // namespace klunortredi::csp
