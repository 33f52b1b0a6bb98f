#include "chains/name_form.hpp"

#include "capi/constants.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

using GeneralNames = std::unique_ptr<GENERAL_NAMES, ossl::Deleter<GENERAL_NAMES_free>>;
using Constraints = std::unique_ptr<NAME_CONSTRAINTS, ossl::Deleter<NAME_CONSTRAINTS_free>>;

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

bool isLabelCharacter(char character) {
    return isDigit(character) || character == '-' || (character >= 'a' && character <= 'z') ||
           (character >= 'A' && character <= 'Z');
}

bool isLabel(std::string_view label) {
    constexpr std::size_t longest = 63; // RFC 1035, 2.3.4
    return !label.empty() && label.size() <= longest && label.front() != '-' && label.back() != '-' &&
           std::ranges::all_of(label, isLabelCharacter);
}

/// A name of the DNS in the preferred syntax (RFC 1034, 3.5), its first label perhaps a wildcard. One whose last label
/// is a number is an address.
bool isDnsName(std::string_view name) {
    if (name.starts_with("*.")) {
        name.remove_prefix(2);
    }
    while (true) {
        const auto dot = name.find('.');
        const std::string_view label = name.substr(0, dot);
        if (!isLabel(label)) {
            return false;
        }
        if (dot == std::string_view::npos) {
            return !std::ranges::all_of(label, isDigit);
        }
        name.remove_prefix(dot + 1);
    }
}

bool isEmptyName(const GENERAL_NAME* name) {
    switch (name->type) {
    case GEN_EMAIL:
    case GEN_DNS:
    case GEN_URI:
        return ASN1_STRING_length(name->d.ia5) == 0;
    case GEN_IPADD:
        return ASN1_STRING_length(name->d.ip) == 0;
    default:
        return false;
    }
}

DWORD alternativeNameErrors(const X509* certificate) {
    int critical = 0;
    const GeneralNames names(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, &critical, nullptr)));
    if (!names) {
        return 0; // absent, or malformed, which is reported elsewhere
    }
    const int count = sk_GENERAL_NAME_num(names.get());
    for (int i = 0; i < count; ++i) {
        const GENERAL_NAME* const name = sk_GENERAL_NAME_value(names.get(), i);
        if (isEmptyName(name) || (name->type == GEN_DNS && !isDnsName(nameText(name->d.dNSName)))) {
            return capi::CERT_TRUST_INVALID_EXTENSION;
        }
    }
    return count == 0 ? capi::CERT_TRUST_INVALID_EXTENSION : 0;
}

/// A base that OpenSSL would compare although it cannot be one. An empty one excludes every name of its kind, but
/// permits none that could be meant.
DWORD baseErrors(const GENERAL_NAME* base, bool permitted) {
    if ((permitted && isEmptyName(base)) ||
        (base->type == GEN_EMAIL && nameText(base->d.rfc822Name).starts_with('@'))) {
        return capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS;
    }
    if (base->type == GEN_OTHERNAME &&
        OBJ_obj2nid(base->d.otherName->type_id) ==
            NID_id_on_SmtpUTF8Mailbox) { // RFC 9598, 6: mailboxes of other alphabets are limited by rfc822Name
        return capi::CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT;
    }
    return 0;
}

DWORD constraintErrors(X509* certificate) {
    const Constraints constraints(
        static_cast<NAME_CONSTRAINTS*>(X509_get_ext_d2i(certificate, NID_name_constraints, nullptr, nullptr)));
    if (!constraints) {
        return 0;
    }
    DWORD errors = X509_check_ca(certificate) == 0 ? capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS : 0;
    bool any = false;
    for (const auto* const trees : {constraints->permittedSubtrees, constraints->excludedSubtrees}) {
        const int count = sk_GENERAL_SUBTREE_num(trees); // -1: absent
        any = any || count > 0;
        errors |= count == 0 ? capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS : 0;
        for (int i = 0; i < count; ++i) {
            errors |= baseErrors(sk_GENERAL_SUBTREE_value(trees, i)->base, trees == constraints->permittedSubtrees);
        }
    }
    return any ? errors : errors | capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS;
}

} // namespace

std::string_view nameText(const ASN1_STRING* string) noexcept {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast)
    return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(string)),
            static_cast<std::size_t>(ASN1_STRING_length(string))};
}

bool isMailbox(std::string_view address) noexcept {
    const auto at = address.rfind('@');
    if (at == std::string_view::npos || at == 0 || at + 1 == address.size()) {
        return false;
    }
    const std::string_view local = address.substr(0, at);
    const bool quoted = local.size() > 1 && local.front() == '"' && local.back() == '"';
    return quoted || local.find('@') == std::string_view::npos;
}

bool hasPlainAuthority(std::string_view uri) noexcept {
    const auto start = uri.find("//");
    if (start == std::string_view::npos) {
        return true;
    }
    const std::string_view rest = uri.substr(start + 2);
    const std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    if (authority.find('@') != std::string_view::npos) {
        return false;
    }
    const auto port = authority.starts_with('[') ? authority.find(':', authority.find(']')) : authority.find(':');
    return port == std::string_view::npos || std::ranges::all_of(authority.substr(port + 1), isDigit);
}

DWORD nameFormErrors(X509* certificate) {
    return alternativeNameErrors(certificate) | constraintErrors(certificate);
}

} // namespace klunortredi::csp
