#include "exports/chain_request.hpp"

#include "capi/constants.hpp"
#include "core/error.hpp"

#include <algorithm>
#include <cstring>

namespace klunortredi::csp::exports {

namespace {

RevocationCheck revocationCheck(DWORD flags) {
    if ((flags & capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN) != 0) {
        return RevocationCheck::Chain;
    }
    if ((flags & capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT) != 0) {
        return RevocationCheck::ChainExcludeRoot;
    }
    return (flags & capi::CERT_CHAIN_REVOCATION_CHECK_END_CERT) != 0 ? RevocationCheck::EndCertificate
                                                                     : RevocationCheck::None;
}

std::vector<std::string> oidsOf(const CERT_USAGE_MATCH& match) {
    std::vector<std::string> oids;
    for (DWORD i = 0; i < match.Usage.cUsageIdentifier; ++i) {
        if (match.Usage.rgpszUsageIdentifier == nullptr || match.Usage.rgpszUsageIdentifier[i] == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        oids.emplace_back(match.Usage.rgpszUsageIdentifier[i]);
    }
    return oids;
}

/// The parameters in their longer form; what the shorter one lacks is zero.
CERT_CHAIN_PARA_LONG longForm(const CERT_CHAIN_PARA& parameters) {
    CERT_CHAIN_PARA_LONG whole{};
    std::memcpy(&whole, &parameters, std::min<std::size_t>(parameters.cbSize, sizeof whole));
    return whole;
}

RequestedPolicies policiesOf(const CERT_USAGE_MATCH& match, DWORD flags) {
    const auto has = [flags](DWORD flag) { return (flags & flag) != 0; };
    return {oidsOf(match), match.dwType == capi::USAGE_MATCH_TYPE_OR, has(capi::CERT_CHAIN_REQUIRE_EXPLICIT_POLICY),
            has(capi::CERT_CHAIN_INHIBIT_POLICY_MAPPING), has(capi::CERT_CHAIN_INHIBIT_ANY_POLICY)};
}

} // namespace

ChainRequest chainRequest(const CERT_CHAIN_PARA& parameters, DWORD flags) {
    const CERT_CHAIN_PARA_LONG whole = longForm(parameters);
    if (whole.pStrongSignPara != nullptr || whole.dwStrongSignFlags != 0) {
        fail(capi::ERROR_NOT_SUPPORTED);
    }
    ChainRequest request;
    request.revocation = revocationCheck(flags);
    // Each alone asks for what is at hand, or can be retrieved, without calling a missing list an error.
    constexpr DWORD modifiers =
        capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY | capi::CERT_CHAIN_REVOCATION_ACCUMULATIVE_TIMEOUT;
    request.listsAtHand = (flags & modifiers) != 0;
    request.retrieval.issuers = (flags & capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL) == 0;
    request.retrieval.status = request.retrieval.issuers && (flags & capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY) == 0;
    request.retrieval.timeout = std::chrono::milliseconds(whole.dwUrlRetrievalTimeout);
    request.retrieval.anew = whole.pftCacheResync != nullptr;
    request.lowerQuality = (flags & capi::CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS) != 0;
    request.usage = {oidsOf(whole.RequestedUsage), whole.RequestedUsage.dwType == capi::USAGE_MATCH_TYPE_OR};
    request.policies = policiesOf(whole.RequestedIssuancePolicy, flags);
    if (whole.fCheckRevocationFreshnessTime != 0) {
        request.oldestList = whole.dwRevocationFreshnessTime;
    }
    return request;
}

std::shared_ptr<OpenStore> anchorsOf(void* engine) {
    const auto number = reinterpret_cast<unsigned long>(engine); // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
    try {
        return number <= 1 ? nullptr : openStore(engine);
    } catch (const ApiError&) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
}

} // namespace klunortredi::csp::exports
