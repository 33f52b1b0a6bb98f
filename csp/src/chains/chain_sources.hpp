#pragma once

/// The certificates and CRLs from which a chain is built.

#include "core/ossl.hpp"
#include "stores/store.hpp"

#include <map>
#include <memory>
#include <set>
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

/// Reads and decodes only the certificates that a chain asks for, each name once. Of equal copies the first found
/// counts: anchors before others.
class ChainSources {
public:
    /// `additional` may be null; null `anchors` are those of store "root".
    ChainSources(const std::shared_ptr<OpenStore>& additional, const std::shared_ptr<OpenStore>& anchors);

    /// Adds a store after all others. Anchors are not among its certificates.
    void add(const std::shared_ptr<OpenStore>& store);
    /// The candidate whose subject is `name`, decoded, each encoding once, in no particular order. At most `limit`.
    std::vector<const Candidate*> named(const X509_NAME* name, std::size_t limit);
    /// The anchor with the encoding of `certificate`; null when there is none.
    [[nodiscard]] const Candidate* anchor(const Certificate& certificate);
    /// Why a certificate of the stores that may have been asked for could not be read (a CryptoAPI code); 0: all could.
    [[nodiscard]] DWORD unread() const noexcept { return unread_; }
    /// CRLs whose issuer is `name`, those of the system stores before those of the additional store. The stores' CRLs
    /// are read at the first call; a CRL that does not decode is left out with a warning.
    IssuerCrls crlsOf(const X509_NAME* name);

private:
    struct Source {
        std::shared_ptr<OpenStore> store;
        bool anchors;
    };

    void collect(unsigned long hash);
    void collectFrom(const Source& source, unsigned long hash);
    void readCrls();
    void readCrlsOf(OpenStore& store);

    std::vector<Source> sources_;
    std::set<unsigned long> collected_;                            ///< hashes of subjects in `candidates_`
    std::unordered_multimap<unsigned long, Candidate> candidates_; ///< by the hash of the subject
    DWORD unread_ = 0;
    std::unordered_map<unsigned long, std::vector<RevocationList>> crls_; ///< by the hash of the issuer
    bool crlsRead_ = false;
};

} // namespace klunortredi::csp
