#include "chains/chain_usage.hpp"

#include "x509/enhanced_key_usage.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

/// Usages of the certificate within those that its issuers leave.
std::optional<std::vector<std::string>> usageWithin(const Certificate& certificate,
                                                    const std::optional<std::vector<std::string>>& above) {
    auto own = enhancedKeyUsage(certificate, 0);
    if (!own || std::ranges::find(*own, anyEnhancedKeyUsage) != own->end()) {
        return above;
    }
    if (above) {
        std::erase_if(*own, [&](const std::string& oid) { return std::ranges::find(*above, oid) == above->end(); });
    }
    return own;
}

bool allows(const std::optional<std::vector<std::string>>& usage, const RequestedUsage& requested) {
    const auto holds = [&](const std::string& oid) { return std::ranges::find(*usage, oid) != usage->end(); };
    if (!usage || requested.oids.empty()) {
        return true;
    }
    return requested.any ? std::ranges::any_of(requested.oids, holds) : std::ranges::all_of(requested.oids, holds);
}

} // namespace

void judgeUsage(std::vector<ChainElement>& elements, const RequestedUsage& requested) {
    std::optional<std::vector<std::string>> above;
    for (auto element = elements.rbegin(); element != elements.rend(); ++element) {
        try {
            element->usage = above = usageWithin(*element->certificate, above);
        } catch (const ApiError&) {
            element->errors |= capi::CERT_TRUST_INVALID_EXTENSION;
            continue;
        }
        if (!allows(element->usage, requested)) {
            element->errors |= capi::CERT_TRUST_IS_NOT_VALID_FOR_USAGE;
        }
    }
}

} // namespace klunortredi::csp
