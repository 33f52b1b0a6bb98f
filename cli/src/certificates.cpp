#include "certificates.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/certificate_store.hpp"
#include "crypto/wincrypt/scoped_handle.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "orvik/plugin/hex.hpp"
#include "printable.hpp"
#include "service_words.hpp"
#include "skipped_entries.hpp"
#include "text.hpp"

#include <boost/smart_ptr/make_shared.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <tuple>

namespace klunortredi::cli {

namespace {

using orvik::plugin::crypto::ICertificate;
using orvik::plugin::crypto::ICertificateStore;

constexpr std::size_t largestCertificate = 1024 * 1024; // octets of a file; real ones have a few thousand
constexpr std::size_t largestUsable = 102400;           // octets of DER; the interface's sizes end there

std::string providerOf(const ICertificate& certificate) {
    const auto provider = certificate.provider(false);
    return provider ? text::utf8(provider->name()) : std::string{};
}

/// Hexadecimal digits as other programs print them: without "0x", and the colons or blanks between octets. Empty for
/// anything else.
std::string digitsOf(const std::string& which) {
    std::string digits;
    for (const char c : which.starts_with("0x") ? which.substr(2) : which) {
        if (c != ':' && c != ' ') {
            digits += c;
        }
    }
    return digits.find_first_not_of("0123456789abcdef") == std::string::npos ? digits : std::string{};
}

std::string withoutZeros(const std::string& digits) {
    return digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
}

/// `which` in lower case.
bool matches(const ICertificate& certificate, const std::string& which) {
    const std::string digits = digitsOf(which);
    const bool byNumber = !digits.empty() && (thumbprintOf(certificate).starts_with(digits) ||
                                              withoutZeros(serialOf(certificate)) == withoutZeros(digits));
    return byNumber || text::lower(subjectOf(certificate)).find(which) != std::string::npos;
}

orvik::plugin::scoped_handle<void*> openStore(const std::string& store) {
    namespace wincrypt = orvik::plugin::wincrypt;
    return orvik::plugin::scoped_handle<void*>(
        [&](void*& held) { held = wincrypt::CertOpenSystemStore(0, store.c_str()); },
        [](void*& held) { wincrypt::CertCloseStore(held, 0); });
}

/// The certificate of a store with that whole thumbprint, found without reading the others; null when `which` is not a
/// whole thumbprint or none has it.
CertificatePtr withThumbprint(const std::string& store, const std::string& which) {
    namespace wincrypt = orvik::plugin::wincrypt;
    constexpr std::size_t digitsOfSha1 = 40;
    const std::string digits = digitsOf(text::lower(which));
    if (digits.size() != digitsOfSha1) {
        return {};
    }
    std::string octets = orvik::plugin::hex::decode(digits);
    const CRYPTOAPI_BLOB thumbprint{static_cast<DWORD>(octets.size()), reinterpret_cast<BYTE*>(octets.data())};
    const auto opened = openStore(store);
    const CERT_CONTEXT* const found =
        opened ? wincrypt::CertFindCertificateInStore(opened.get(), capi::X509_AND_PKCS_7, 0, capi::CERT_FIND_SHA1_HASH,
                                                      &thumbprint, nullptr)
               : nullptr;
    return found == nullptr ? CertificatePtr()
                            : boost::make_shared<wincrypt::Certificate>(const_cast<CERT_CONTEXT*>(found));
}

/// By subject, then by thumbprint. Each is decoded once, not in each comparison.
std::vector<CertificatePtr> inOrder(const std::vector<CertificatePtr>& certificates) {
    struct Row {
        std::string subject;
        std::string thumbprint;
        CertificatePtr certificate;
    };
    std::vector<Row> rows;
    rows.reserve(certificates.size());
    for (const CertificatePtr& certificate : certificates) {
        rows.push_back({subjectOf(*certificate), thumbprintOf(*certificate), certificate});
    }
    std::ranges::sort(rows, {}, [](const Row& row) { return std::tie(row.subject, row.thumbprint); });
    std::vector<CertificatePtr> ordered(rows.size());
    std::ranges::transform(rows, ordered.begin(), &Row::certificate);
    return ordered;
}

/// An empty list of certificates is also what the library returns when the service could not list them. Returns whether
/// the service has some; throws Failure when it cannot list them.
bool serviceHasCertificates(const std::string& store) {
    namespace wincrypt = orvik::plugin::wincrypt;
    const auto opened = openStore(store);
    const auto* first = opened ? wincrypt::CertEnumCertificatesInStore(opened.get(), nullptr) : nullptr;
    if (first != nullptr) {
        wincrypt::CertFreeCertificateContext(first);
        return true;
    }
    const std::uint32_t error = wincrypt::GetLastErrorEx();
    collectSkipped();
    if (firstUnread(skippedEntries()) == nullptr) { // else the list is known to lack some
        checkEmptyList("cannot list the certificates of store " + store, error);
    }
    return false;
}

} // namespace

CertificatePtr readCertificate(const std::string& path) {
    const std::string data = readSmall(path, largestCertificate, certificateLabel);
    try {
        return certificateFromDer(data);
    } catch (...) {
        const Failure failure = currentFailure("cannot read the certificate " + path);
        // What the service says of malformed octets is still about our input.
        if (failure.exit() == ExitCode::service && failure.code() >= 0x80090000U) {
            throw Failure(ExitCode::input, "cannot read the certificate " + path, "this is not a certificate", {},
                          failure.code());
        }
        throw failure;
    }
}

CertificatePtr certificateFromDer(const std::string& der) {
    if (der.size() > largestUsable) {
        throw Failure(ExitCode::input, "cannot read a certificate",
                      "it has " + std::to_string(der.size()) + " octets, the library takes at most " +
                          std::to_string(largestUsable));
    }
    return boost::make_shared<orvik::plugin::wincrypt::Certificate>(der, ICertificate::Format::der);
}

std::vector<CertificatePtr> storeCertificates(const std::string& store) {
    const orvik::plugin::wincrypt::RegistryCertificateStore registry(store, ICertificateStore::system);
    auto found = registry.certificates();
    if (found.empty() && serviceHasCertificates(store)) { // they came meanwhile, or reading failed once
        found = registry.certificates();
    }
    collectSkipped();
    return inOrder({found.begin(), found.end()});
}

std::vector<CertificatePtr> matchingInStore(const std::string& store, const std::string& which) {
    if (auto one = withThumbprint(store, which)) {
        return {std::move(one)};
    }
    return matchingCertificates(storeCertificates(store), which, "store " + store);
}

CertificatePtr findInStore(const std::string& store, const std::string& which) {
    return onlyCertificate(matchingInStore(store, which), which);
}

std::vector<CertificatePtr> matchingCertificates(const std::vector<CertificatePtr>& among, const std::string& which,
                                                 const std::string& where) {
    const std::string wanted = text::lower(which);
    std::vector<CertificatePtr> found;
    std::copy_if(among.begin(), among.end(), std::back_inserter(found),
                 [&](const CertificatePtr& certificate) { return matches(*certificate, wanted); });
    const auto skipped = skippedEntries();
    if (const SkippedEntry* const unread = found.empty() ? firstUnread(skipped) : nullptr) {
        throw Failure(ExitCode::input, "cannot tell whether there is a certificate '" + which + "'",
                      printable(unread->file) + " is skipped: " + skippingReason(unread->code), {}, unread->code);
    }
    if (wanted.empty() || found.empty()) {
        throw Failure(ExitCode::no, "no certificate '" + which + "'", "none in " + where + " matches",
                      "see 'klunortredi certs list'");
    }
    return found;
}

CertificatePtr onlyCertificate(const std::vector<CertificatePtr>& found, const std::string& which) {
    if (found.size() > 1) {
        std::vector<std::string> names;
        for (const auto& certificate : found) {
            names.push_back(thumbprintOf(*certificate).substr(0, 8) + " " + subjectOf(*certificate));
        }
        throw Failure(ExitCode::usage, "cannot tell which certificate '" + which + "' is",
                      std::to_string(found.size()) + " match (" + text::joined(names) + ")",
                      "give more of one of them");
    }
    return found.front();
}

CertificatePtr findCertificate(const std::vector<CertificatePtr>& among, const std::string& which,
                               const std::string& where) {
    return onlyCertificate(matchingCertificates(among, which, where), which);
}

std::string subjectOf(const ICertificate& certificate) {
    return text::name(certificate.subjectNameInfo());
}

std::string titleOf(const ICertificate& certificate) {
    return printableName(subjectOf(certificate));
}

std::string thumbprintOf(const ICertificate& certificate) {
    const auto octets = certificate.thumbprint();
    return octets ? orvik::plugin::hex::encode(*octets) : std::string{};
}

std::string serialOf(const ICertificate& certificate) {
    // Not from serialNumber(), which leaves out numbers of one octet.
    const auto* const context = orvik::plugin::wincrypt::tools::toPCCERT_CONTEXT(certificate.context());
    if (context == nullptr) {
        return {};
    }
    const CRYPTOAPI_BLOB& number = context->pCertInfo->SerialNumber;
    return text::serial({reinterpret_cast<const char*>(number.pbData), number.cbData});
}

std::optional<std::vector<std::string>> extendedUsageOf(const ICertificate& certificate) {
    try {
        return certificate.enhancedKeyUsage();
    } catch (const orvik::plugin::crypto::exception::CryptoException&) {
        return {};
    }
}

std::string containerOf(const ICertificate& certificate) {
    const auto container = certificate.container();
    if (!container) {
        return {};
    }
    const std::string path = text::utf8(*container);
    return path.substr(path.find_last_of("/\\") + 1);
}

nlohmann::ordered_json toJson(const ICertificate& certificate) {
    const auto publicKey = certificate.publicKey();
    const auto extended = extendedUsageOf(certificate);
    return {{"subject", subjectOf(certificate)},
            {"issuer", text::name(certificate.issuerNameInfo())},
            {"serial", serialOf(certificate)},
            {"thumbprint", thumbprintOf(certificate)},
            {"not_before", text::time(certificate.notBefore())},
            {"not_after", text::time(certificate.notAfter())},
            {"algorithm", publicKey ? publicKey->algObjId() : std::string{}},
            {"key_usage", text::keyUsage(certificate.keyUsage().value_or(0))},
            {"enhanced_key_usage", extended ? nlohmann::ordered_json(*extended) : nlohmann::ordered_json(nullptr)},
            {"friendly_name", certificate.friendlyName()},
            {"container", containerOf(certificate)},
            {"provider", providerOf(certificate)}};
}

void print(std::ostream& out, const ICertificate& certificate) {
    const auto line = [&out](const char* label, const std::string& value) {
        if (!value.empty()) {
            out << "  " << label << printableName(value) << '\n';
        }
    };
    out << titleOf(certificate) << '\n';
    line("issuer      ", text::name(certificate.issuerNameInfo()));
    line("serial      ", serialOf(certificate));
    line("thumbprint  ", thumbprintOf(certificate));
    line("valid from  ", text::time(certificate.notBefore()));
    line("valid until ", text::time(certificate.notAfter()));
    line("key usage   ", text::joined(text::keyUsage(certificate.keyUsage().value_or(0))));
    line("container   ", containerOf(certificate));
    line("provider    ", providerOf(certificate));
}

} // namespace klunortredi::cli
