#include "chains/chain_builder.hpp"

#include "chains/access_locations.hpp"
#include "chains/certificate_form.hpp"
#include "chains/chain_quality.hpp"
#include "chains/chain_usage.hpp"
#include "chains/distrust.hpp"
#include "chains/element_signature.hpp"
#include "chains/name_form.hpp"
#include "chains/name_limits.hpp"
#include "chains/online_status.hpp"
#include "chains/path_judgement.hpp"
#include "chains/path_search.hpp"
#include "chains/revocation_lists.hpp"
#include "chains/weak_algorithm.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/engine.hpp"
#include "stores/memory_store.hpp"
#include "x509/x509_der.hpp"

#include <algorithm>
#include <limits>
#include <set>

namespace klunortredi::csp {

namespace {

/// Age in seconds at which a list without nextUpdate (RFC 5280, 5.1.2.5 requires the field) is not good any more; the
/// same as for answers of servers.
constexpr DWORD longestWithoutNextUpdate = 86400;

/// Issuers that are retrieved one after the other.
constexpr int mostRounds = 4;

constexpr DWORD unknownBits = capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN;
constexpr DWORD revocationBits = unknownBits | capi::CERT_TRUST_IS_REVOKED;
constexpr DWORD weakSignature = capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID | capi::CERT_TRUST_HAS_WEAK_SIGNATURE;

bool selfIssued(const X509* certificate) {
    return X509_NAME_cmp(X509_get_subject_name(certificate), X509_get_issuer_name(certificate)) == 0;
}

/// Whether OpenSSL needs the engine to judge the certificate: to decode its key, or to check its issuer's signature.
bool needsEngine(const X509* certificate) {
    ASN1_OBJECT* key = nullptr;
    X509_PUBKEY_get0_param(&key, nullptr, nullptr, nullptr, X509_get_X509_PUBKEY(certificate));
    const KeyAlgorithm* const own = findKey(ossl::oidText(key));
    const X509_ALGOR* signature = nullptr;
    X509_get0_signature(nullptr, &signature, certificate);
    const SignatureAlgorithm* const issuers = findSignature(ossl::oidText(signature->algorithm));
    return (own != nullptr && own->gost) || (issuers != nullptr && findKey(issuers->keyOid)->gost);
}

/// OpenSSL decodes a GOST key only with the engine there. The failure to load it, or nothing.
std::optional<ApiError> loadEngine() {
    try {
        gostEngine();
        return {};
    } catch (const ApiError& error) {
        return error;
    }
}

/// How the issuer was found.
DWORD issuerMatch(X509* certificate, X509* issuer) {
    const ASN1_OCTET_STRING* const named = X509_get0_authority_key_id(certificate);
    const ASN1_OCTET_STRING* const own = X509_get0_subject_key_id(issuer);
    const ASN1_INTEGER* const serial = X509_get0_authority_serial(certificate);
    if (serial != nullptr && ASN1_INTEGER_cmp(serial, X509_get0_serialNumber(issuer)) == 0) {
        return capi::CERT_TRUST_HAS_EXACT_MATCH_ISSUER;
    }
    const bool byKey = named != nullptr && own != nullptr && ASN1_OCTET_STRING_cmp(named, own) == 0;
    return byKey ? capi::CERT_TRUST_HAS_KEY_MATCH_ISSUER : capi::CERT_TRUST_HAS_NAME_MATCH_ISSUER;
}

/// Judges the paths of one request.
class ChainBuilder {
public:
    explicit ChainBuilder(const ChainRequest& request)
        : request_(request), sources_(request.additional, request.anchors),
          target_{request.certificate, nullptr, sources_.anchor(*request.certificate) != nullptr,
                  ossl::fromDer<ossl::X509Ptr>(d2i_X509, request.certificate->encoded())} {
        if (!target_.x509) {
            fail(capi::CRYPT_E_ASN1_CORRUPT);
        }
    }

    BuiltChain run() {
        std::vector<BuiltChain> chains;
        searchInto(chains);
        for (int round = 0; round < mostRounds && retrieveIssuer(chains.front()); ++round) {
            searchInto(chains);
        }
        // Chains of other keys work without the engine; of these, what was found would not be a verdict.
        if (chains.front().errors != 0 && engineMissed_) {
            throw *withoutEngine_;
        }
        // "Not trusted" would say that the issuer is not there.
        constexpr DWORD missing = capi::CERT_TRUST_IS_PARTIAL_CHAIN | capi::CERT_TRUST_IS_UNTRUSTED_ROOT;
        if ((chains.front().errors & missing) != 0 && sources_.unread() != 0) {
            fail(sources_.unread());
        }
        BuiltChain best = std::move(chains.front());
        if (request_.lowerQuality) {
            best.lower.assign(std::make_move_iterator(chains.begin() + 1), std::make_move_iterator(chains.end()));
        }
        return best;
    }

private:
    /// The chains of every path that the search finds, the best first.
    void searchInto(std::vector<BuiltChain>& chains) {
        chains.clear();
        PathSearch search(sources_, request_.time);
        search.run(target_, [&](const Path& path) {
            chains.push_back(judged(path));
            return chains.back().errors != 0 || request_.lowerQuality;
        });
        // Stable: of equal quality, the one that the search found first.
        std::ranges::stable_sort(chains, isBetterChain, &BuiltChain::errors);
        const bool limited = chains.front().errors != 0 && search.limited();
        chains.front().information = limited ? capi::CERT_TRUST_SEARCH_LIMITED : 0;
    }

    Retrieval& retrieval() {
        if (!retrieval_) {
            RetrievalBudget budget;
            budget.time = request_.retrieval.timeout.count() > 0 ? request_.retrieval.timeout : budget.time;
            retrieval_.emplace(budget, request_.retrieval.anew);
        }
        return *retrieval_;
    }

    /// Retrieves the issuer that the best chain lacks; whether a certificate came that was not at hand. Only for a
    /// chain with no other fault than that, the times and the unknown status: a chain with another fault is refused
    /// whatever the issuer is.
    bool retrieveIssuer(const BuiltChain& chain) {
        constexpr DWORD curable = capi::CERT_TRUST_IS_PARTIAL_CHAIN | capi::CERT_TRUST_IS_NOT_TIME_VALID | unknownBits |
                                  capi::CERT_TRUST_IS_OFFLINE_REVOCATION;
        if (!request_.retrieval.issuers || (chain.errors & capi::CERT_TRUST_IS_PARTIAL_CHAIN) == 0 ||
            (chain.errors & ~curable) != 0) {
            return false;
        }
        const auto end = ossl::fromDer<ossl::X509Ptr>(d2i_X509, chain.elements.back().certificate->encoded());
        for (const std::string& location : end ? issuerLocations(end.get()) : std::vector<std::string>{}) {
            if (!asked_.insert(location).second) {
                continue;
            }
            const std::vector<Bytes> certificates = retrieval().certificates(location);
            if (!certificates.empty()) {
                sources_.add(openMemoryStore(certificates, {}));
                return true;
            }
        }
        return false;
    }

    static std::shared_ptr<OpenStore> openMemoryStore(const std::vector<Bytes>& certificates, std::vector<Bytes> crls) {
        return std::make_shared<OpenStore>(std::make_shared<MemoryStore>(certificates, std::move(crls)), false);
    }

    BuiltChain judged(const Path& path) {
        const bool looks = request_.revocation != RevocationCheck::None || request_.listsAtHand;
        PathCrls crls = looks ? crlsOf(path, sources_) : PathCrls{};
        BuiltChain chain = judgedBy(path, crls, {});
        // A path with another fault is refused whatever the status is, and its certificates may be anybody's.
        const bool sound =
            path.anchored && (chain.errors & ~(unknownBits | capi::CERT_TRUST_IS_OFFLINE_REVOCATION)) == 0;
        if (!request_.retrieval.status || !looks || !sound) {
            return chain;
        }
        const std::set<std::size_t> missing = unknownElements(path, crls, chain);
        if (missing.empty()) {
            return chain;
        }
        RetrievedStatus found = retrieveStatus(path, crls, missing, request_.time, retrieval());
        if (!found.crls.empty()) {
            sources_.add(openMemoryStore({}, std::move(found.crls)));
            crls = crlsOf(path, sources_);
        }
        return judgedBy(path, crls, found.answers);
    }

    /// The elements about which somebody may be asked: those in question, below the end of the path, whose status
    /// nothing at hand says. Where a limit left a list at hand unread, no other source replaces that list.
    [[nodiscard]] std::set<std::size_t> unknownElements(const Path& path, const PathCrls& crls,
                                                        const BuiltChain& chain) const {
        const std::size_t below = path.certificates.size() - 1;
        const std::size_t count =
            request_.revocation == RevocationCheck::EndCertificate ? std::min<std::size_t>(below, 1) : below;
        std::set<std::size_t> unknown;
        for (std::size_t i = 0; i < count; ++i) {
            const auto& revocation = chain.elements[i].revocation;
            if (!crls.unjudged.contains(i) && (!revocation || revocation->result != 0)) {
                unknown.insert(i);
            }
        }
        return unknown;
    }

    BuiltChain judgedBy(const Path& path, const PathCrls& crls, const OcspAnswers& answers) {
        const PathJudgement judgement = judgePath(path, crls, request_);
        BuiltChain chain;
        chain.errors = judgement.findings.ofChain() | endOf(path);
        for (std::size_t i = 0; i < path.certificates.size(); ++i) {
            const Candidate& candidate = *path.certificates[i];
            engineMissed_ = engineMissed_ || (withoutEngine_ && needsEngine(candidate.x509.get()));
            ChainElement element;
            element.certificate = candidate.certificate;
            element.store = candidate.store;
            const DWORD unjudged = crls.unjudged.contains(i) ? unknownBits : 0;
            element.revocation = revocationOf(judgement.crls[i], candidate.x509.get(),
                                              judgement.findings.ofElement(i) | unjudged, request_.time);
            DWORD found = judgement.findings.ofElement(i);
            if (const auto answer = answers.find(i); answer != answers.end() && unjudged == 0) {
                found = withAnswer(found, answer->second, element.revocation);
            }
            found |= tooOld(element.revocation);
            element.errors = errorsOf(path, found, unjudged, i);
            if (element.revocation && element.revocation->result == capi::CRYPT_E_REVOKED &&
                (element.errors & capi::CERT_TRUST_IS_REVOKED) == 0) {
                element.revocation.reset(); // what a root says of itself does not count
            }
            element.information = informationOf(path, i);
            chain.elements.push_back(std::move(element));
        }
        judgeNames(path, chain.elements);
        judgeUsage(chain.elements, request_.usage);
        for (const ChainElement& element : chain.elements) {
            chain.errors |= element.errors;
        }
        return chain;
    }

    static DWORD endOf(const Path& path) {
        return path.cyclic ? capi::CERT_TRUST_IS_CYCLIC | capi::CERT_TRUST_IS_PARTIAL_CHAIN : 0;
    }

    /// A certificate that a list revokes stays revoked, whatever a server answers.
    [[nodiscard]] DWORD withAnswer(DWORD found, const OcspAnswer& answer,
                                   std::optional<ElementRevocation>& revocation) const {
        if ((found & capi::CERT_TRUST_IS_REVOKED) != 0) {
            return found;
        }
        revocation = revocationOf(answer, request_.time);
        return (found & ~unknownBits) | (revocation->result != 0 ? capi::CERT_TRUST_IS_REVOKED : 0);
    }

    /// The age up to which what is said of a certificate counts.
    [[nodiscard]] DWORD oldestOf(const ElementRevocation& revocation) const {
        const auto isEndless = [](const std::shared_ptr<X509_CRL>& list) {
            return list && X509_CRL_get0_nextUpdate(list.get()) == nullptr;
        };
        const DWORD oldest = request_.oldestList.value_or(std::numeric_limits<DWORD>::max());
        return isEndless(revocation.base) || isEndless(revocation.delta) ? std::min(oldest, longestWithoutNextUpdate)
                                                                         : oldest;
    }

    /// A list that is older than the caller takes, or that does not say until when it holds and is old, says nothing
    /// good; what it revokes stays revoked.
    [[nodiscard]] DWORD tooOld(std::optional<ElementRevocation>& revocation) const {
        if (!revocation || revocation->result == capi::CRYPT_E_REVOKED ||
            revocation->freshness <= oldestOf(*revocation)) {
            return 0;
        }
        revocation->result = capi::CRYPT_E_REVOCATION_OFFLINE;
        return unknownBits;
    }

    DWORD errorsOf(const Path& path, DWORD found, DWORD unjudged, std::size_t index) {
        X509* const certificate = path.certificates[index]->x509.get();
        const bool end = index + 1 == path.certificates.size();
        const bool anchor = end && path.anchored;
        DWORD errors = found;
        const DWORD ignored = ignoredRevocation(index, end && selfIssued(certificate));
        errors &= ~ignored;
        if ((ignored & capi::CERT_TRUST_IS_REVOKED) == 0) {
            errors |= unjudged; // a missing list may be no error, one that was there and not looked at always is
        }
        if ((errors & unknownBits) != 0) {
            errors |= capi::CERT_TRUST_IS_OFFLINE_REVOCATION;
        }
        if (!end && !exactSignature(certificate, path.certificates[index + 1]->x509.get())) {
            errors |= capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID;
        }
        if (hasBrokenKey(certificate) || (!anchor && hasBrokenSignature(certificate))) {
            errors |= weakSignature;
        }
        if (distrust_.holds(*path.certificates[index]->certificate, certificate)) {
            errors |= capi::CERT_TRUST_IS_EXPLICIT_DISTRUST;
        }
        return errors | formErrors(certificate) | nameFormErrors(certificate);
    }

    static bool exactSignature(const X509* certificate, const X509* issuer) {
        const ASN1_BIT_STRING* signature = nullptr;
        X509_get0_signature(&signature, nullptr, certificate);
        return hasExactLength(signature, issuer);
    }

    /// The revocation bits that do not count for an element: nobody asked, or a missing CRL is not an error.
    [[nodiscard]] DWORD ignoredRevocation(std::size_t index, bool selfIssuedEnd) const {
        switch (request_.revocation) {
        case RevocationCheck::Chain:
            return 0;
        case RevocationCheck::ChainExcludeRoot:
            return selfIssuedEnd ? revocationBits : 0;
        case RevocationCheck::EndCertificate:
            return index == 0 ? 0 : revocationBits;
        default:
            return request_.listsAtHand && !selfIssuedEnd ? unknownBits : revocationBits;
        }
    }

    static DWORD informationOf(const Path& path, std::size_t index) {
        X509* const certificate = path.certificates[index]->x509.get();
        if (index + 1 == path.certificates.size()) {
            return selfIssued(certificate) ? capi::CERT_TRUST_IS_SELF_SIGNED : 0;
        }
        return issuerMatch(certificate, path.certificates[index + 1]->x509.get()) |
               (path.preferred[index] ? capi::CERT_TRUST_HAS_PREFERRED_ISSUER : 0);
    }

    /// Holds every element's names against the constraints of the certificates above it.
    static void judgeNames(const Path& path, std::vector<ChainElement>& elements) {
        constexpr DWORD nameErrors =
            capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS | capi::CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT |
            capi::CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT | capi::CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT;
        NameLimits limits;
        for (std::size_t i = elements.size(); i-- > 0;) {
            const X509* const certificate = path.certificates[i]->x509.get();
            elements[i].errors |= limits.errors(certificate);
            if (!limits.empty() && (elements[i].errors & nameErrors) == 0) {
                elements[i].information |= capi::CERT_TRUST_HAS_VALID_NAME_CONSTRAINTS;
            }
            limits.add(certificate);
        }
    }

    const ChainRequest& request_;
    const std::optional<ApiError> withoutEngine_ = loadEngine();
    ChainSources sources_;
    const Distrust distrust_;
    Candidate target_;
    std::optional<Retrieval> retrieval_; ///< its time begins at the first use
    std::set<std::string> asked_;        ///< locations of issuers
    bool engineMissed_ = false;
};

} // namespace

BuiltChain buildChain(const ChainRequest& request) {
    const ossl::ErrorMark mark;
    return ChainBuilder(request).run();
}

} // namespace klunortredi::csp
