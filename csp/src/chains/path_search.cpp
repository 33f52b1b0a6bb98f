#include "chains/path_search.hpp"

#include "chains/element_signature.hpp"

#include <openssl/core_names.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <tuple>

namespace klunortredi::csp {

namespace {

/// Certificates of one name that are looked at as issuers of another certificate.
constexpr std::size_t mostOfOneName = 64;
/// Issuers of one certificate that are followed.
constexpr std::size_t mostBranches = 8;
/// A signature check with an RSA modulus or exponent beyond these sizes takes as long as `hugeKeyCost` others, one on a
/// curve beyond this size as `largeCurveCost`, one with DSA as the one or the other by its modulus.
constexpr int hugeKeyBits = 4096;
constexpr int hugeExponentBits = 64;
constexpr std::size_t hugeKeyCost = 16;
constexpr int largeModulusBits = 2048;
constexpr int largeCurveBits = 256;
constexpr std::size_t largeCurveCost = 4;

bool hasHugeExponent(const EVP_PKEY* key) {
    const ossl::ErrorMark mark;
    BIGNUM* number = nullptr;
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &number);
    const ossl::Bn exponent(number);
    return exponent && BN_num_bits(exponent.get()) > hugeExponentBits;
}

/// What a signature check with the key takes, in those of an ordinary key.
std::size_t costOf(const EVP_PKEY* key) {
    if (key == nullptr) {
        return 1;
    }
    const int bits = EVP_PKEY_get_bits(key);
    if (EVP_PKEY_get_base_id(key) == EVP_PKEY_DSA) {
        return bits > largeModulusBits ? hugeKeyCost : largeCurveCost;
    }
    if (EVP_PKEY_get_base_id(key) == EVP_PKEY_EC) {
        return bits > largeCurveBits ? largeCurveCost : 1;
    }
    return bits > hugeKeyBits || hasHugeExponent(key) ? hugeKeyCost : 1;
}

/// Whether name and key identifier allow `issuer` to be the subject's issuer. A key identifier that differs does not
/// (RFC 5280, section 4.2.1.1); what its usage says is judged with the whole path.
bool mayIssue(const Candidate& issuer, const Candidate& subject) {
    const int verdict = X509_check_issued(issuer.x509.get(), subject.x509.get());
    return verdict == X509_V_OK || verdict == X509_V_ERR_KEYUSAGE_NO_CERTSIGN;
}

bool namesKeyOf(const Candidate& subject, const Candidate& issuer) {
    const ASN1_OCTET_STRING* const named = X509_get0_authority_key_id(subject.x509.get());
    const ASN1_OCTET_STRING* const own = X509_get0_subject_key_id(issuer.x509.get());
    return named != nullptr && own != nullptr && ASN1_OCTET_STRING_cmp(named, own) == 0;
}

bool coversTime(const Candidate& candidate, std::time_t time) {
    return X509_cmp_time(X509_get0_notBefore(candidate.x509.get()), &time) < 0 &&
           X509_cmp_time(X509_get0_notAfter(candidate.x509.get()), &time) > 0;
}

std::uint64_t beginning(const Candidate& candidate) {
    const FILETIME& from = candidate.certificate->info().NotBefore;
    return (static_cast<std::uint64_t>(from.dwHighDateTime) << 32U) | from.dwLowDateTime;
}

/// Orders issuers of a certificate, the best first.
auto rank(const Candidate& subject, const Candidate& issuer, std::time_t time) {
    return std::make_tuple(!issuer.anchor, !namesKeyOf(subject, issuer), !coversTime(issuer, time), ~beginning(issuer),
                           issuer.certificate->thumbprint());
}

bool sameEntity(const Candidate& left, const Candidate& right) {
    return X509_NAME_cmp(X509_get_subject_name(left.x509.get()), X509_get_subject_name(right.x509.get())) == 0 &&
           std::ranges::equal(left.certificate->decoded().subjectPublicKeyInfo(),
                              right.certificate->decoded().subjectPublicKeyInfo());
}

} // namespace

void PathSearch::run(const Candidate& target, const std::function<bool(const Path&)>& visit) {
    visit_ = visit;
    Path path{{&target}, {false}};
    extend(path);
}

bool PathSearch::extend(Path& path) {
    const Candidate& last = *path.certificates.back();
    path.anchored = last.anchor;
    if (path.anchored) {
        return finish(path);
    }
    if (path.certificates.size() == longestPath || budget_.steps == 0) {
        limited_ = true;
        return finish(path);
    }
    --budget_.steps;
    const Issuers& issuers = issuersOf(last);
    bool followed = false;
    for (const Candidate* const issuer : issuers.list) {
        if (!follows(path, *issuer)) {
            continue;
        }
        followed = true;
        path.preferred.back() = issuers.list.size() > 1;
        path.certificates.push_back(issuer);
        path.preferred.push_back(false);
        const bool more = extend(path);
        path.certificates.pop_back();
        path.preferred.pop_back();
        path.anchored = false;
        if (!more) {
            return false;
        }
    }
    if (followed) {
        return true;
    }
    path.preferred.back() = false;
    path.cyclic = !issuers.list.empty();
    const bool more = finish(path);
    path.cyclic = false;
    return more;
}

bool PathSearch::affords(const Path& path) {
    std::size_t cost = 0;
    for (const Candidate* const element : path.certificates) {
        cost += costOf(X509_get0_pubkey(element->x509.get()));
    }
    if (visited_ && budget_.pathSignatures < cost) {
        limited_ = true;
        return false;
    }
    budget_.pathSignatures -= visited_ ? cost : 0;
    visited_ = true;
    return true;
}

bool PathSearch::finish(const Path& path) {
    --budget_.paths;
    const bool more = !affords(path) || visit_(path);
    limited_ = limited_ || (more && budget_.paths == 0);
    return more && budget_.paths > 0;
}

bool PathSearch::follows(const Path& path, const Candidate& issuer) const {
    return std::ranges::none_of(path.certificates,
                                [&](const Candidate* element) { return sameEntity(*element, issuer); });
}

const PathSearch::Issuers& PathSearch::issuersOf(const Candidate& subject) {
    const auto found = known_.find(&subject);
    return found != known_.end() ? found->second : known_.emplace(&subject, findIssuers(subject)).first->second;
}

PathSearch::Candidates PathSearch::candidatesFor(const Candidate& subject) {
    Candidates found;
    found.list = sources_.named(X509_get_issuer_name(subject.x509.get()), mostOfOneName + 1);
    std::vector<const Candidate*>& candidates = found.list;
    if (candidates.size() > mostOfOneName) {
        candidates.pop_back();
        found.complete = false;
        limited_ = true;
    }
    std::erase_if(candidates, [&](const Candidate* issuer) {
        return !mayIssue(*issuer, subject) ||
               std::ranges::equal(issuer->certificate->encoded(), subject.certificate->encoded());
    });
    std::ranges::sort(candidates, {}, [&](const Candidate* issuer) { return rank(subject, *issuer, time_); });
    return found;
}

PathSearch::Issuers PathSearch::findIssuers(const Candidate& subject) {
    if (mayIssue(subject, subject) && signedBy(subject, subject).value_or(false)) {
        return {{}, true};
    }
    const auto [candidates, complete] = candidatesFor(subject);
    Issuers issuers;
    bool everyOneChecked = complete;
    for (const Candidate* const issuer : candidates) {
        if (issuers.list.size() == mostBranches) {
            limited_ = true;
            break;
        }
        const std::optional<bool> isSigned = signedBy(subject, *issuer);
        everyOneChecked = everyOneChecked && isSigned;
        if (isSigned.value_or(false)) {
            issuers.list.push_back(issuer);
        }
    }
    if (issuers.list.empty() && !candidates.empty() && everyOneChecked) {
        issuers.list.push_back(candidates.front()); // shows whose signature does not verify
    }
    return issuers;
}

std::optional<bool> PathSearch::signedBy(const Candidate& subject, const Candidate& issuer) {
    const EVP_PKEY* const key = X509_get0_pubkey(issuer.x509.get());
    const std::size_t cost = costOf(key);
    if (budget_.signatureChecks < cost) {
        limited_ = true;
        return std::nullopt;
    }
    budget_.signatureChecks -= cost;
    return verifiesSignature(subject.x509.get(), issuer.x509.get());
}

} // namespace klunortredi::csp
