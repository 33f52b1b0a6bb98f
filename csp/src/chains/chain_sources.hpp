#pragma once

/// The certificates and CRLs from which a chain is built.

#include "core/ossl.hpp"
#include "stores/store.hpp"

#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

namespace klunortredi::csp {

/// A certificate of a store, for OpenSSL and for us.
struct Candidate {
    std::shared_ptr<Certificate> certificate;
    std::shared_ptr<OpenStore> store; ///< null for the certificate asked about
    bool anchor = false;
    ossl::X509Ptr x509{}; ///< decoded when first needed
};

/// A CRL, decoded when first needed.
struct RevocationList {
    StoredCrl stored;
    ossl::X509NamePtr issuer;
    std::shared_ptr<X509_CRL> crl{}; ///< null: not decoded yet
    bool unusable = false;
};

/// CRLs under one name, decoded; nothing is said of their signatures.
struct IssuerCrls {
    std::vector<std::shared_ptr<X509_CRL>> lists;
    bool complete = true; ///< false: there are more than may be looked at
};

/// Reads the system stores once; decodes only what a chain asks for. Of equal copies the first found counts: anchors
/// before others.
class ChainSources {
public:
    /// `additional` may be null; null `anchors` are those of store "root".
    ChainSources(const std::shared_ptr<OpenStore>& additional, const std::shared_ptr<OpenStore>& anchors);

    /// Adds a store after all others. Anchors are not among its certificates.
    void add(const std::shared_ptr<OpenStore>& store);
    /// The candidate whose subject is `name`, decoded, each encoding once, in no particular order. At most `limit`.
    std::vector<const Candidate*> named(const X509_NAME* name, std::size_t limit);
    /// The anchor with the encoding of `certificate`; null when there is none.
    [[nodiscard]] const Candidate* anchor(const Certificate& certificate) const;
    /// CRLs whose issuer is `name`, those of the system stores before those of the additional store. The stores' CRLs
    /// are read at the first call; a CRL that does not decode is left out with a warning.
    IssuerCrls crlsOf(const X509_NAME* name);

private:
    void collect(const std::shared_ptr<OpenStore>& store, bool anchor);
    void readCrls();
    void readCrlsOf(OpenStore& store);

    std::vector<std::shared_ptr<OpenStore>> stores_;
    std::unordered_multimap<unsigned long, Candidate> candidates_;        ///< by the hash of the subject
    std::unordered_map<unsigned long, std::vector<RevocationList>> crls_; ///< by the hash of the issuer
    bool crlsRead_ = false;
};

} // namespace klunortredi::csp
