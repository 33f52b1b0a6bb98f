#include "chains/name_limits.hpp"

#include "capi/constants.hpp"
#include "chains/name_form.hpp"

#include <strings.h>

#include <algorithm>
#include <string_view>

namespace klunortredi::csp {

namespace {

using GeneralNames = std::unique_ptr<GENERAL_NAMES, ossl::Deleter<GENERAL_NAMES_free>>;

/// Names times constraints that are compared, as OpenSSL's limit.
constexpr std::size_t mostComparisons = std::size_t{1} << 20U;

std::size_t countOf(const STACK_OF(GENERAL_SUBTREE) * trees) {
    return static_cast<std::size_t>(std::max(sk_GENERAL_SUBTREE_num(trees), 0));
}

bool sameIgnoringCase(std::string_view left, std::string_view right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

/// Whether "*.base" stands for `excluded` among others: a wildcard is one label.
bool covers(std::string_view wildcard, std::string_view excluded) {
    const std::string_view base = wildcard.substr(1); // with its dot
    const std::string_view name = excluded.starts_with('.') ? excluded.substr(1) : excluded;
    const auto dot = name.find('.');
    return dot != std::string_view::npos && dot > 0 && sameIgnoringCase(name.substr(dot), base);
}

} // namespace

void NameLimits::add(const X509* certificate) {
    auto* const constraints =
        static_cast<NAME_CONSTRAINTS*>(X509_get_ext_d2i(certificate, NID_name_constraints, nullptr, nullptr));
    if (constraints != nullptr) {
        constraints_.emplace_back(constraints);
        bases_ += countOf(constraints->permittedSubtrees) + countOf(constraints->excludedSubtrees);
    }
}

bool NameLimits::limits(int nameType) const {
    const auto has = [nameType](const STACK_OF(GENERAL_SUBTREE) * trees) {
        for (int i = 0; i < sk_GENERAL_SUBTREE_num(trees); ++i) {
            if (sk_GENERAL_SUBTREE_value(trees, i)->base->type == nameType) {
                return true;
            }
        }
        return false;
    };
    return std::ranges::any_of(constraints_, [&](const auto& constraints) {
        return has(constraints->permittedSubtrees) || has(constraints->excludedSubtrees);
    });
}

bool NameLimits::excludesWildcard(const ASN1_IA5STRING* dnsName) const {
    const std::string_view name = nameText(dnsName);
    if (!name.starts_with("*.")) {
        return false;
    }
    for (const auto& constraints : constraints_) {
        for (int i = 0; i < sk_GENERAL_SUBTREE_num(constraints->excludedSubtrees); ++i) {
            const GENERAL_NAME* const base = sk_GENERAL_SUBTREE_value(constraints->excludedSubtrees, i)->base;
            if (base->type == GEN_DNS && covers(name, nameText(base->d.dNSName))) {
                return true;
            }
        }
    }
    return false;
}

DWORD NameLimits::errors(const X509* certificate) const {
    DWORD errors = 0;
    if (empty()) {
        return errors;
    }
    const GeneralNames names(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    if (static_cast<std::size_t>(std::max(sk_GENERAL_NAME_num(names.get()), 0)) * bases_ > mostComparisons) {
        return capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS;
    }
    const bool uriLimits = limits(GEN_URI);
    const bool mailLimits = limits(GEN_EMAIL);
    for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names.get(), i);
        if (name->type == GEN_DNS && excludesWildcard(name->d.dNSName)) {
            errors |= capi::CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT;
        }
        if ((name->type == GEN_URI && uriLimits && !hasPlainAuthority(nameText(name->d.uniformResourceIdentifier))) ||
            (name->type == GEN_EMAIL && mailLimits && !isMailbox(nameText(name->d.rfc822Name)))) {
            errors |= capi::CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT;
        }
    }
    return errors;
}

} // namespace klunortredi::csp
