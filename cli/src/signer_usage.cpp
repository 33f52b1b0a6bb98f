#include "signer_usage.hpp"

#include "capi/constants.hpp"
#include "certificates.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "failure.hpp"
#include "text.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;
using orvik::plugin::crypto::ICertificate;

constexpr unsigned forSigning = capi::CERT_DIGITAL_SIGNATURE_KEY_USAGE | capi::CERT_NON_REPUDIATION_KEY_USAGE;
constexpr unsigned forServers = forSigning | capi::CERT_KEY_ENCIPHERMENT_KEY_USAGE | capi::CERT_KEY_AGREEMENT_KEY_USAGE;

constexpr const char* anyUsage = "2.5.29.37.0";

struct Usage {
    const char* name; ///< on the command line; empty: by OID only
    const char* oid;
    const char* words;
    unsigned keyUsages; ///< one of these bits is needed
    bool documents;     ///< fits the signer of a document when no usage is named
};

/// docs/command.md explains the choice.
constexpr std::array usages{
    Usage{"email", "1.3.6.1.5.5.7.3.4", "e-mail protection", forSigning, true},
    Usage{"document-signing", "1.3.6.1.5.5.7.3.36", "document signing", forSigning, true}, // RFC 9336
    Usage{"", "1.3.6.1.4.1.311.10.3.12", "Microsoft document signing", forSigning, true},
    Usage{"", "1.2.840.113583.1.1.5", "Adobe authentic documents", forSigning, true},
    Usage{"any", anyUsage, "any usage", forSigning, true},
    Usage{"client-auth", "1.3.6.1.5.5.7.3.2", "TLS client authentication", forSigning, false},
    Usage{"server-auth", "1.3.6.1.5.5.7.3.1", "TLS server authentication", forServers, false},
    Usage{"code-signing", "1.3.6.1.5.5.7.3.3", "code signing", forSigning, false},
    Usage{"time-stamping", "1.3.6.1.5.5.7.3.8", "time-stamping", forSigning, false},
    Usage{"ocsp-signing", "1.3.6.1.5.5.7.3.9", "OCSP signing", forSigning, false},
};

const Usage* findUsage(std::string_view oid) {
    const auto* const found = std::ranges::find(usages, oid, &Usage::oid);
    return found == usages.end() ? nullptr : found;
}

/// Null when the certificate does not have the extension.
CERT_EXTENSION* extensionOf(const ICertificate& certificate, const char* oid) {
    const auto* const context = wincrypt::tools::toPCCERT_CONTEXT(certificate.context());
    return wincrypt::CertFindExtension(oid, context->pCertInfo->cExtension, context->pCertInfo->rgExtension);
}

/// Basic constraints that cannot be read count as those of an authority.
bool isAuthority(const ICertificate& certificate) {
    const CERT_EXTENSION* const extension = extensionOf(certificate, capi::szOID_BASIC_CONSTRAINTS2);
    if (extension == nullptr) {
        return false;
    }
    CERT_BASIC_CONSTRAINTS2_INFO info{};
    DWORD size = sizeof info;
    return wincrypt::CryptDecodeObject(capi::X509_AND_PKCS_7, capi::szOID_BASIC_CONSTRAINTS2, extension->Value.pbData,
                                       extension->Value.cbData, 0, &info, &size) == 0 ||
           info.fCA != 0;
}

std::optional<Problem> keyUsageProblem(const ICertificate& certificate, unsigned needed) {
    if (extensionOf(certificate, capi::szOID_KEY_USAGE) == nullptr) {
        return {}; // unrestricted
    }
    const unsigned bits = certificate.keyUsage().value_or(0);
    if ((bits & needed) != 0) {
        return {};
    }
    const std::string names = text::joined(text::keyUsage(bits));
    return Problem{names.empty() ? "its key usage allows nothing that can be read"
                                 : "its key is for " + names + ", not for signatures",
                   "a signer's certificate has digitalSignature or nonRepudiation"};
}

std::optional<Problem> extendedUsageProblem(const ICertificate& certificate, const ChainQuery& query) {
    if (extensionOf(certificate, capi::szOID_ENHANCED_KEY_USAGE) == nullptr) {
        return {}; // unrestricted
    }
    const auto held = extendedUsageOf(certificate);
    if (!held) {
        return Problem{"its extended key usage cannot be read", "to accept any usage, add --usage any"};
    }
    const bool fits = std::ranges::any_of(*held, [&](const std::string& oid) {
        const Usage* const usage = findUsage(oid);
        return oid == anyUsage || (query.usage.empty() ? usage != nullptr && usage->documents : oid == query.usage);
    });
    if (fits) {
        return {};
    }
    std::vector<std::string> words(held->size());
    std::ranges::transform(*held, words.begin(), usageWords);
    const std::string purpose = query.usage.empty() ? "documents" : usageWords(query.usage);
    return Problem{"its extended key usage (" + (words.empty() ? "empty" : text::joined(words)) + ") is not for " +
                       purpose,
                   query.usage.empty() ? "if that usage is meant, name it with --usage" : std::string{}};
}

} // namespace

std::string usageOid(const std::string& option, const std::string& usage) {
    const auto* const named = std::ranges::find(usages, std::string_view(usage), &Usage::name);
    if (!usage.empty() && named != usages.end()) {
        return named->oid;
    }
    const bool digits = usage.find_first_not_of("0123456789.") == std::string::npos;
    if (usage.empty() || !digits) {
        std::vector<std::string> names;
        for (const Usage& row : usages) {
            if (*row.name != '\0') {
                names.emplace_back(row.name);
            }
        }
        throw Failure(ExitCode::usage, "cannot use " + option + " " + usage, "there is no usage of that name",
                      "give an OID, or one of " + text::joined(names));
    }
    text::checkOid(option, usage);
    return usage;
}

std::string usageWords(const std::string& oid) {
    const Usage* const usage = findUsage(oid);
    return usage == nullptr ? oid : usage->words;
}

RequestedUsages::RequestedUsages(const ChainQuery& query)
    : type_(query.usage.empty() ? capi::USAGE_MATCH_TYPE_OR : capi::USAGE_MATCH_TYPE_AND) {
    if (query.usage.empty() && query.signer) {
        for (const Usage& usage : usages) {
            if (usage.documents) {
                oids_.emplace_back(usage.oid);
            }
        }
    } else if (!query.usage.empty() && query.usage != anyUsage) {
        oids_.push_back(query.usage);
    } else {
        type_ = capi::USAGE_MATCH_TYPE_AND; // of nothing: every usage fits
    }
    std::ranges::transform(oids_, std::back_inserter(pointers_), [](std::string& oid) { return oid.data(); });
}

CERT_USAGE_MATCH RequestedUsages::match() noexcept {
    return {type_, {static_cast<DWORD>(pointers_.size()), pointers_.data()}};
}

std::optional<Problem> signerProblem(const ICertificate& certificate, const ChainQuery& query) {
    if (query.usage == anyUsage) {
        return {};
    }
    if (isAuthority(certificate)) {
        return Problem{"it is the certificate of an authority, which signs certificates and not documents",
                       "to accept it all the same, add --usage any"};
    }
    const Usage* const named = findUsage(query.usage);
    if (auto problem = keyUsageProblem(certificate, named == nullptr ? forSigning : named->keyUsages)) {
        return problem;
    }
    return extendedUsageProblem(certificate, query);
}

} // namespace klunortredi::cli
