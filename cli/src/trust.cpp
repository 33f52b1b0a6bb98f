#include "trust.hpp"

#include "capi/constants.hpp"
#include "chain_material.hpp"
#include "crypto/wincrypt/certificate_verifier.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "printable.hpp"
#include "revocation_info.hpp"
#include "signer_usage.hpp"
#include "skipped_entries.hpp"
#include "text.hpp"
#include "trust_words.hpp"
#include "weak.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <ctime>
#include <span>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
namespace wincrypt = orvik::plugin::wincrypt;
using orvik::plugin::crypto::ICertificate;

struct FreeChain {
    void operator()(PCCERT_CHAIN_CONTEXT chain) const { wincrypt::CertFreeCertificateChain(chain); }
};
using Chain = std::unique_ptr<const CERT_CHAIN_CONTEXT, FreeChain>;

FILETIME fileTime(const boost::posix_time::ptime& time) {
    const auto ticks = static_cast<std::uint64_t>(wincrypt::converter::to_filetime(time));
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32U)};
}

/// Time of one chain's retrievals.
constexpr std::chrono::milliseconds chainRetrieval{15'000};

/// Processor time of one document's chains: a message of 250 signers with sound chains takes about one second.
constexpr std::chrono::seconds documentWork{3};

std::chrono::nanoseconds processorTime() {
    timespec used{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

/// For a chain after the end of the time.
Trust notJudged() {
    Trust trust;
    trust.status = capi::CERT_TRUST_IS_PARTIAL_CHAIN;
    trust.statusNames = {"CERT_TRUST_IS_PARTIAL_CHAIN"};
    trust.problems = {{"the chain was not looked at: the document's other chains took " +
                           std::to_string(documentWork.count()) + " s of processor time",
                       "name the signers that matter with --require THUMBPRINT: their chains are judged first"}};
    return trust;
}

/// What is left for retrievals; 0: none.
std::chrono::milliseconds retrievalTime(const ChainQuery& query) {
    using std::chrono::milliseconds;
    const auto left = std::chrono::duration_cast<milliseconds>(query.retrievalEnd - std::chrono::steady_clock::now());
    return query.offline ? milliseconds::zero() : std::clamp(left, milliseconds::zero(), chainRetrieval);
}

/// Revocation is always looked at. Without a checking flag a status that is not known is not an error.
DWORD chainFlags(const ChainQuery& query, bool online) {
    const DWORD where = online
                            ? capi::CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT
                            : capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY | capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL;
    return where | (query.requireRevocation ? capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT : 0);
}

std::shared_ptr<const ChainMaterial> additionalOf(const ChainQuery& query) {
    return std::make_shared<ChainMaterial>(query.certificates, query.crls);
}

/// Null where the stores' own anchors count.
std::shared_ptr<const ChainMaterial> anchorsOf(const ChainQuery& query) {
    if (!query.anchors) {
        return nullptr;
    }
    requireEmbeddedService("--anchor");
    return std::make_shared<ChainMaterial>(*query.anchors, std::vector<std::string>{});
}

Chain build(PCCERT_CONTEXT certificate, const ChainQuery& query) {
    const auto additional = query.additional ? query.additional : additionalOf(query);
    const auto anchors = query.anchorMaterial ? query.anchorMaterial : anchorsOf(query);
    RequestedUsages usages(query);
    const std::chrono::milliseconds online = retrievalTime(query);
    CERT_CHAIN_PARA_LONG para{};
    para.cbSize = usesEmbeddedService() ? sizeof para : sizeof(CERT_CHAIN_PARA);
    para.RequestedUsage = usages.match();
    para.dwUrlRetrievalTimeout = static_cast<DWORD>(online.count());
    FILETIME time = query.time ? fileTime(*query.time) : FILETIME{};
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    if (wincrypt::CertGetCertificateChain(
            anchors ? anchors->store() : nullptr, certificate, query.time ? &time : nullptr, additional->store(),
            reinterpret_cast<CERT_CHAIN_PARA*>(&para), chainFlags(query, online.count() > 0), nullptr, &chain) == 0) {
        const orvik::plugin::crypto::exception::SystemException failure;
        collectSkipped();
        throw failure;
    }
    Chain built(chain);
    collectSkipped();
    return built;
}

TrustElement readElement(const CERT_CHAIN_ELEMENT& from) {
    TrustElement element;
    element.certificate = certificateFromDer({reinterpret_cast<const char*>(from.pCertContext->pbCertEncoded),
                                              static_cast<std::size_t>(from.pCertContext->cbCertEncoded)});
    element.status = from.TrustStatus.dwErrorStatus;
    element.revocation = readRevocation(from);
    return element;
}

/// Bits that the service may give to the chain alone, though they are about its last certificate.
constexpr std::uint32_t ofTheLast =
    capi::CERT_TRUST_IS_PARTIAL_CHAIN | capi::CERT_TRUST_IS_UNTRUSTED_ROOT | capi::CERT_TRUST_IS_CYCLIC;

/// The bits of the chain that no element has; those about the last certificate are given to it.
std::uint32_t distribute(Trust& trust) {
    std::uint32_t left = trust.status;
    for (const TrustElement& element : trust.elements) {
        left &= ~element.status;
    }
    if (!trust.elements.empty()) {
        trust.elements.back().status |= left & ofTheLast;
        left &= ~ofTheLast;
    }
    return left;
}

/// A list that was not read may revoke any certificate below the root.
void forgetGoodNews(std::span<TrustElement> elements, bool endIsSelfSigned, const ChainQuery& query) {
    using Status = Revocation::Status;
    for (TrustElement& element : elements.first(elements.size() - (endIsSelfSigned ? 1 : 0))) {
        if (element.revocation.status == Status::good) {
            element.revocation.status = Status::unknown;
        }
        if (query.requireRevocation && element.revocation.status == Status::unknown) {
            element.status |= capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN | capi::CERT_TRUST_IS_OFFLINE_REVOCATION;
        }
    }
}

/// Nobody revokes a root: the status of a chain is that of the certificates below its self-signed end.
Revocation overall(std::span<const TrustElement> elements, bool endIsSelfSigned) {
    using Status = Revocation::Status;
    const auto revoked = std::ranges::find_if(
        elements, [](const TrustElement& element) { return element.revocation.status == Status::revoked; });
    if (revoked != elements.end()) {
        return revoked->revocation;
    }
    const auto below = elements.first(elements.size() - (endIsSelfSigned && elements.size() > 1 ? 1 : 0));
    const bool good = std::ranges::all_of(
        below, [](const TrustElement& element) { return element.revocation.status == Status::good; });
    return {good && !below.empty() ? Status::good : Status::unknown, {}, {}, false};
}

/// What is weak about each key, and about each signature but the one that a root makes over itself. What is broken is
/// never trusted, whatever the service says.
void judgeAlgorithms(std::vector<TrustElement>& elements, bool endIsSelfSigned, const ChainQuery& query) {
    using orvik::plugin::crypto::WeaknessLevel;
    const auto time = query.time.value_or(boost::posix_time::second_clock::universal_time());
    for (TrustElement& element : elements) {
        std::vector<Weakness> found = keyWeaknesses(*element.certificate, time);
        if (!endIsSelfSigned || &element != &elements.back()) {
            const auto ofSignature = signatureWeaknesses(*element.certificate, time);
            found.insert(found.end(), ofSignature.begin(), ofSignature.end());
        }
        for (const Weakness& weakness : found) {
            element.weak.push_back(describe(weakness));
            if (weakness.level == WeaknessLevel::never) {
                element.status |= capi::CERT_TRUST_HAS_WEAK_SIGNATURE;
            }
        }
    }
}

Json toJson(const Revocation& revocation) {
    constexpr const char* names[] = {"good", "revoked", "unknown"};
    Json json{{"status", names[static_cast<std::size_t>(revocation.status)]}};
    if (revocation.status == Revocation::Status::revoked) {
        json["since"] = revocation.since.empty() ? Json(nullptr) : Json(revocation.since);
        json["reason"] = revocation.reason;
    }
    return json;
}

Json toJson(const std::vector<Problem>& problems) {
    Json list = Json::array();
    for (const Problem& problem : problems) {
        list.push_back({{"what", problem.what}, {"next", problem.next}});
    }
    return list;
}

Json toJson(const TrustElement& element) {
    return {{"subject", subjectOf(*element.certificate)},
            {"issuer", text::name(element.certificate->issuerNameInfo())},
            {"serial", serialOf(*element.certificate)},
            {"thumbprint", thumbprintOf(*element.certificate)},
            {"not_before", text::time(element.certificate->notBefore())},
            {"not_after", text::time(element.certificate->notAfter())},
            {"status", element.status},
            {"status_names", element.statusNames},
            {"revocation", toJson(element.revocation)},
            {"weak", element.weak},
            {"problems", toJson(element.problems)}};
}

} // namespace

void ChainQuery::beginDocument() {
    beginRetrieval();
    workEnd = processorTime() + documentWork;
}

void ChainQuery::keepMaterial() {
    additional = additionalOf(*this);
    anchorMaterial = anchorsOf(*this);
    certificates.clear();
    crls.clear();
    if (anchors) {
        anchors->clear();
    }
}

Trust judgeChain(const ICertificate& certificate, const ChainQuery& query) {
    if (query.workEnd && processorTime() >= *query.workEnd) {
        return notJudged();
    }
    // A certificate of another library is judged by its octets.
    PCCERT_CONTEXT context = wincrypt::tools::toPCCERT_CONTEXT(certificate.context());
    const CertificatePtr own = context == nullptr ? certificateFromDer(certificate.raw()) : nullptr;
    context = own ? wincrypt::tools::toPCCERT_CONTEXT(own->context()) : context;
    const Chain chain = build(context, query);

    Trust trust;
    trust.status = chain->TrustStatus.dwErrorStatus;
    bool endIsSelfSigned = false;
    for (const CERT_SIMPLE_CHAIN* simple : std::span(chain->rgpChain, chain->cChain)) {
        for (const CERT_CHAIN_ELEMENT* element : std::span(simple->rgpElement, simple->cElement)) {
            trust.elements.push_back(readElement(*element));
            endIsSelfSigned = (element->TrustStatus.dwInfoStatus & capi::CERT_TRUST_IS_SELF_SIGNED) != 0;
        }
    }
    const auto unfit = query.signer && !trust.elements.empty()
                           ? signerProblem(*trust.elements.front().certificate, query)
                           : std::nullopt;
    if (unfit) {
        trust.elements.front().status |= capi::CERT_TRUST_IS_NOT_VALID_FOR_USAGE;
    }
    judgeAlgorithms(trust.elements, endIsSelfSigned, query);
    if (query.crlsPassedOver) {
        forgetGoodNews(trust.elements, endIsSelfSigned, query);
    }
    const bool limited = (chain->TrustStatus.dwInfoStatus & capi::CERT_TRUST_SEARCH_LIMITED) != 0;
    for (const TrustElement& element : trust.elements) {
        trust.status |= element.status;
    }
    const std::uint32_t ofChain = distribute(trust);
    if (!trust.elements.empty()) {
        trust.elements.back().searchLimited = limited;
    }
    for (TrustElement& element : trust.elements) {
        element.statusNames = statusNames(element.status, certificate);
        element.problems = problemsOf(element, query, &element == &trust.elements.front() ? unfit : std::nullopt);
    }
    trust.problems = problemsOfChain(ofChain);
    if (limited) {
        trust.problems.push_back(searchLimitReached());
    }
    trust.statusNames = statusNames(trust.status, certificate);
    trust.revocation = overall(trust.elements, endIsSelfSigned);
    trust.trusted = trust.status == capi::CERT_TRUST_NO_ERROR;
    return trust;
}

Json toJson(const Trust& trust) {
    Json elements = Json::array();
    Json weak = Json::array();
    for (const TrustElement& element : trust.elements) {
        elements.push_back(toJson(element));
        for (const std::string& words : element.weak) {
            weak.push_back(subjectOf(*element.certificate) + ": " + words);
        }
    }
    return {{"trusted", trust.trusted},
            {"status", trust.status},
            {"status_names", trust.statusNames},
            {"revocation", toJson(trust.revocation)},
            {"weak", weak},
            {"problems", toJson(trust.problems)},
            {"elements", elements}};
}

std::string describe(const Trust& trust) {
    if (trust.trusted) {
        return "trusted";
    }
    for (const TrustElement& element : trust.elements) {
        if (!element.problems.empty()) {
            return "not trusted: " + titleOf(*element.certificate) + ": " + printable(element.problems.front().what);
        }
    }
    return "not trusted: " + (trust.problems.empty() ? text::joined(trust.statusNames) : trust.problems.front().what);
}

std::string describe(const Revocation& revocation) {
    switch (revocation.status) {
    case Revocation::Status::good:
        return "good";
    case Revocation::Status::revoked:
        return "revoked" + (revocation.since.empty() ? "" : " since " + revocation.since) +
               (revocation.reason.empty() ? "" : " (" + revocation.reason + ")");
    default:
        return "not known";
    }
}

} // namespace klunortredi::cli
