#pragma once

/// Descriptions of certificates, CRLs and a question about them, made into encodings with few keys.

#include "chain_case.hpp"
#include "pki.hpp"

#include <ctime>
#include <string>
#include <utility>
#include <vector>

namespace chain_draft {

/// Indices of the keys of a ring.
enum Key : std::size_t { rootKey, caKey, subKey, leafKey, otherKey, spareKey, keyCount };

/// Keys of one algorithm, made once.
struct KeyRing {
    explicit KeyRing(pki::KeyKind kind);
    std::vector<csp::ossl::Pkey> keys;
};

enum class Place { anchor, issuer, target };

/// Name and value of an extension as in openssl.cnf; `sections` in chain_draft.cpp are at hand.
using Extension = std::pair<std::string, std::string>;

constexpr long day = 86400;

struct Certificate {
    std::string subject; ///< common name
    std::string issuer;
    Key key = leafKey;
    Key signer = rootKey;
    Place place = Place::issuer;
    long serial = 1;
    long from = -10 * day; ///< notBefore, seconds from the time of the question
    long to = 10 * day;
    std::vector<Extension> extensions{};
    long version = 2;      ///< as encoded: 2 is v3
    bool damaged = false;  ///< the last octet of the signature is changed
    Key named = keyCount;  ///< key that the authority key identifier names; keyCount: the signer's
    std::string unknown{}; ///< "critical" or "plain": carries an extension that nobody knows
    std::string email{};   ///< an emailAddress in the subject

    /// Replaces the value of the extension, or adds it; an empty value removes it.
    void set(const std::string& name, const std::string& value);
};

struct Revoked {
    long serial = 0;
    int reason = -1;      ///< of CRLReason; -1: none given
    std::string issuer{}; ///< the certificate's issuer, in an indirect CRL
};

struct Crl {
    std::string issuer;
    Key signer = rootKey;
    long from = -1 * day; ///< thisUpdate
    long to = 1 * day;    ///< nextUpdate
    long number = 1;
    long base = 0; ///< number of the complete CRL that this delta goes with; 0: complete itself
    std::vector<Revoked> revoked{};
    std::vector<Extension> extensions{};
    bool damaged = false;
    bool unknownCritical = false;
};

/// A question in the making. A fresh one: root, ca, sub and leaf, all in order, nothing asked about revocation.
struct Draft {
    Draft();
    [[nodiscard]] Certificate& of(const std::string& subject); ///< the first of that name
    [[nodiscard]] Crl& crlOf(const std::string& issuer);       ///< the first of that issuer
    /// Asks about revocation, with a good CRL of root, ca and sub.
    void askRevocation();

    std::vector<Certificate> certificates;
    std::vector<Crl> crls;
    std::string usage; ///< as openssl verify -purpose calls it: empty or "smimesign"
    bool revocation = false;
    std::time_t time;
};

/// The question that the draft describes.
chain_case::Question encode(const Draft& draft, const KeyRing& ring);

} // namespace chain_draft
