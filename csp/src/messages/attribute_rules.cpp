#include "messages/attribute_rules.hpp"

#include "core/error.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

struct Rule {
    std::string_view oid;
    bool signedOne; ///< signed, and then with one value and once; else unsigned, any number of times
};

constexpr std::array rules{
    Rule{oid::contentType, true},        Rule{oid::messageDigest, true},        Rule{oid::signingTime, true},
    Rule{oid::signingCertificate, true}, Rule{oid::signingCertificateV2, true}, Rule{oid::countersignature, false},
};

auto count(const std::vector<Attribute>& attributes, std::string_view oid) {
    return std::ranges::count(attributes, oid, &Attribute::oid);
}

} // namespace

void checkAttributeRules(const std::vector<Attribute>& signedOnes, const std::vector<Attribute>& unsignedOnes) {
    for (const Rule& rule : rules) {
        if (count(rule.signedOne ? unsignedOnes : signedOnes, rule.oid) > 0) {
            fail(capi::CRYPT_E_AUTH_ATTR_MISSING);
        }
        if (rule.signedOne && count(signedOnes, rule.oid) > 0) {
            onlyValue(signedOnes, rule.oid);
        }
    }
}

const Bytes& onlyValue(const std::vector<Attribute>& attributes, std::string_view oid) {
    const auto found = std::ranges::find(attributes, oid, &Attribute::oid);
    if (found == attributes.end() || count(attributes, oid) != 1 || found->values.size() != 1) {
        fail(capi::CRYPT_E_AUTH_ATTR_MISSING);
    }
    return found->values.front();
}

} // namespace klunortredi::csp
