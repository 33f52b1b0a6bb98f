#pragma once

/// The certificates and CRLs from which a chain is built.

#include "core/ossl.hpp"
#include "stores/store.hpp"

#include <memory>
#include <set>
#include <vector>

namespace klunortredi::csp {

/// A certificate of a store, for OpenSSL and for us.
struct Candidate {
    ossl::X509Ptr x509;
    std::shared_ptr<Certificate> certificate;
    std::shared_ptr<OpenStore> store;
};

struct ChainSources {
    /// Reads the system stores and `additional`, which may be null.
    explicit ChainSources(const std::shared_ptr<OpenStore>& additional);

    /// The candidate whose encoding is that of `x509`; null when there is none.
    [[nodiscard]] const Candidate* find(const X509* x509) const;

    std::vector<Candidate> anchors;
    std::vector<Candidate> issuers;
    std::vector<ossl::X509CrlPtr> crls;
    std::set<Bytes> disallowed; ///< thumbprints
};

} // namespace klunortredi::csp
