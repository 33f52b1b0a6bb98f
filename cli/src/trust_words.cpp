#include "trust_words.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate_verifier.hpp"
#include "signer_usage.hpp"
#include "text.hpp"

#include <algorithm>
#include <array>
#include <cstdio>

namespace klunortredi::cli {

namespace {

using namespace capi;
using orvik::plugin::crypto::ICertificate;

struct Words {
    std::uint32_t bit;
    const char* name; ///< where the plug-in's own table of names has none
    const char* what;
    const char* next;
};

constexpr const char* askTheIssuer = "ask its issuer for a certificate without the fault";

/// In the order of the names: the gravest first.
constexpr std::array table{
    Words{CERT_TRUST_IS_REVOKED, "", "it is revoked", "do not rely on it; ask its holder for a new one"},
    Words{CERT_TRUST_IS_NOT_TIME_VALID, "", "it is not valid at this time", "judge it at another time with --at TIME"},
    Words{CERT_TRUST_IS_NOT_VALID_FOR_USAGE, "", "it, or one of its issuers, is not for this usage",
          "if another usage is meant, name it with --usage"},
    Words{CERT_TRUST_IS_NOT_SIGNATURE_VALID, "", "its signature is not valid", "get it again from its issuer"},
    Words{CERT_TRUST_HAS_WEAK_SIGNATURE, "CERT_TRUST_HAS_WEAK_SIGNATURE",
          "it is signed with an algorithm or a key that is broken", "ask its issuer for a new one"},
    Words{CERT_TRUST_IS_UNTRUSTED_ROOT, "", "it is a root that this machine does not trust",
          "if you trust it, add it with 'klunortredi certs add FILE --store root'"},
    Words{CERT_TRUST_REVOCATION_STATUS_UNKNOWN, "", "no revocation list at hand says whether it is revoked",
          "bring its issuer's current list with --with FILE, or keep it with 'klunortredi certs add FILE --store ca'"},
    Words{CERT_TRUST_IS_OFFLINE_REVOCATION, "CERT_TRUST_IS_OFFLINE_REVOCATION", "", ""}, // goes with the one above
    Words{CERT_TRUST_IS_PARTIAL_CHAIN, "", "its issuer's certificate is missing",
          "bring it with --with FILE, or keep it with 'klunortredi certs add FILE --store ca'"},
    Words{CERT_TRUST_IS_CYCLIC, "", "its issuers certify each other in a circle and lead to no root",
          "bring the root with 'klunortredi certs add FILE --store root', if you trust it"},
    Words{CERT_TRUST_INVALID_EXTENSION, "", "an extension, or its form, is not valid", askTheIssuer},
    Words{CERT_TRUST_INVALID_POLICY_CONSTRAINTS, "", "its certificate policies are not valid", askTheIssuer},
    Words{CERT_TRUST_INVALID_BASIC_CONSTRAINTS, "",
          "it is used as an authority and is not one, or the chain is longer than it allows", askTheIssuer},
    Words{CERT_TRUST_INVALID_NAME_CONSTRAINTS, "", "its name constraints are not valid", askTheIssuer},
    Words{CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT, "",
          "an authority above it restricts names of a kind that cannot be judged", askTheIssuer},
    Words{CERT_TRUST_HAS_NOT_DEFINED_NAME_CONSTRAINT, "",
          "an authority above it restricts names of a kind that cannot be judged", askTheIssuer},
    Words{CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT, "", "an authority above it does not permit its name",
          askTheIssuer},
    Words{CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT, "", "an authority above it excludes its name", askTheIssuer},
    Words{CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY, "", "the chain requires a certificate policy and has none",
          askTheIssuer},
    Words{CERT_TRUST_IS_EXPLICIT_DISTRUST, "", "it is distrusted on this machine",
          "see 'klunortredi certs list --store disallowed'"},
    Words{CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT, "", "it has a critical extension that cannot be judged", ""},
    Words{CERT_TRUST_CTL_IS_NOT_TIME_VALID, "", "the trust list is not valid at this time", ""},
    Words{CERT_TRUST_CTL_IS_NOT_SIGNATURE_VALID, "", "the trust list's signature is not valid", ""},
    Words{CERT_TRUST_CTL_IS_NOT_VALID_FOR_USAGE, "", "the trust list is not for this usage", ""},
};

std::string unnamed(std::uint32_t bit) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", bit);
    return text.data();
}

/// The sentence about a validity period says which end of it was missed.
std::string timeSentence(const TrustElement& element, const ChainQuery& query) {
    const auto at = query.time.value_or(boost::posix_time::second_clock::universal_time());
    const std::string when = query.time ? " at " + text::time(at) : "";
    if (at < element.certificate->notBefore()) {
        return "it is not yet valid" + when + " (from " + text::time(element.certificate->notBefore()) + ")";
    }
    if (at > element.certificate->notAfter()) {
        return (query.time ? "it has expired" + when : "it has expired") + " (valid until " +
               text::time(element.certificate->notAfter()) + ")";
    }
    return "it is not valid at this time";
}

Problem problem(const Words& words, const TrustElement& element, const ChainQuery& query,
                const std::optional<Problem>& unfit) {
    Problem said{words.what, words.next};
    switch (words.bit) {
    case CERT_TRUST_IS_REVOKED:
        said.what = "it is " + describe(element.revocation);
        break;
    case CERT_TRUST_IS_NOT_TIME_VALID:
        said.what = timeSentence(element, query);
        break;
    case CERT_TRUST_IS_NOT_VALID_FOR_USAGE:
        if (unfit) {
            said = *unfit;
        } else if (!query.usage.empty()) {
            said = {"it, or one of its issuers, is not for " + usageWords(query.usage), {}};
        }
        break;
    case CERT_TRUST_IS_UNTRUSTED_ROOT:
        if (query.anchors) {
            said = {"it is not one of the certificates given with --anchor", "if you trust it, give it with --anchor"};
        }
        break;
    case CERT_TRUST_IS_PARTIAL_CHAIN:
        said = element.searchLimited
                   ? Problem{"its issuer's certificate was not found within the limits of the search", {}}
                   : said;
        said.what += " (" + text::name(element.certificate->issuerNameInfo()) + ")";
        break;
    default:
        break;
    }
    return said;
}

} // namespace

std::vector<std::string> statusNames(std::uint32_t status, const ICertificate& certificate) {
    const orvik::plugin::wincrypt::CertificateVerifier names(certificate);
    std::vector<std::string> list;
    for (const Words& words : table) {
        if ((status & words.bit) != 0) {
            list.push_back(*words.name != '\0' ? words.name : names.statusString(static_cast<long>(words.bit)));
            status &= ~words.bit;
        }
    }
    for (std::uint32_t bit = 1; status != 0; bit <<= 1U) {
        if ((status & bit) != 0) {
            list.push_back(unnamed(bit));
            status &= ~bit;
        }
    }
    return list;
}

std::vector<Problem> problemsOf(const TrustElement& element, const ChainQuery& query,
                                const std::optional<Problem>& unfit) {
    std::vector<Problem> problems;
    std::uint32_t left = element.status & ~CERT_TRUST_IS_OFFLINE_REVOCATION; // goes with "status unknown"
    for (const Words& words : table) {
        if ((left & words.bit) != 0) {
            problems.push_back(problem(words, element, query, unfit));
            left &= ~words.bit;
        }
    }
    if (left != 0) {
        problems.push_back({"the service finds a fault that has no name here (" + unnamed(left) + ")", {}});
    }
    return problems;
}

Problem searchLimitReached() {
    return {"the limits of the search for issuers are reached: not every certificate at hand was looked at",
            "bring fewer certificates under the names of the issuers"};
}

std::vector<Problem> problemsOfChain(std::uint32_t bits) {
    std::vector<Problem> problems;
    for (const Words& words : table) {
        if ((bits & words.bit) != 0 && *words.what != '\0') {
            problems.push_back({words.what, words.next});
            bits &= ~words.bit;
        }
    }
    if ((bits & ~CERT_TRUST_IS_OFFLINE_REVOCATION) != 0) {
        problems.push_back({"the service finds a fault that has no name here (" + unnamed(bits) + ")", {}});
    }
    return problems;
}

} // namespace klunortredi::cli
