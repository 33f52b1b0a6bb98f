#include "stores/crl_files.hpp"

#include "asn1/der.hpp"
#include "core/files.hpp"
#include "core/hex.hpp"
#include "core/skipped.hpp"
#include "x509/crl.hpp"
#include "x509/x509_der.hpp"

#include <openssl/x509v3.h>

#include <algorithm>

namespace klunortredi::csp {

namespace {

namespace fs = std::filesystem;

ossl::X509CrlPtr decode(ByteView contents) {
    if (contents.size() > largestCrl) {
        fail(capi::ERROR_INVALID_DATA);
    }
    const auto octets = crlDer(contents);
    auto crl = octets ? ossl::fromDer<ossl::X509CrlPtr>(d2i_X509_CRL, *octets) : nullptr;
    if (!crl) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    return crl;
}

std::time_t timeOf(const ASN1_TIME* time) {
    std::tm parts{};
    if (time == nullptr || ASN1_TIME_to_tm(time, &parts) == 0) {
        fail(capi::CRYPT_E_ASN1_CORRUPT);
    }
    return timegm(&parts);
}

std::string nameText(const X509_NAME* name) {
    const ossl::Bio out(BIO_new(BIO_s_mem()));
    if (!out || X509_NAME_print_ex(out.get(), name, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB) < 0) {
        fail(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
    char* data = nullptr;
    const long size = BIO_get_mem_data(out.get(), &data);
    return {data, static_cast<std::size_t>(std::max(size, 0L))};
}

/// The value of an extension; empty when there is none.
Bytes extensionValue(const X509_CRL* crl, int nid) {
    const int at = X509_CRL_get_ext_by_NID(crl, nid, -1);
    if (at < 0) {
        return {};
    }
    const ByteView value = ossl::octets(X509_EXTENSION_get_data(X509_CRL_get_ext(crl, at)));
    return {value.begin(), value.end()};
}

using DistributionPoint = std::unique_ptr<ISSUING_DIST_POINT, ossl::Deleter<ISSUING_DIST_POINT_free>>;

bool isIndirect(const X509_CRL* crl) {
    const DistributionPoint point(
        static_cast<ISSUING_DIST_POINT*>(X509_CRL_get_ext_d2i(crl, NID_issuing_distribution_point, nullptr, nullptr)));
    return point && point->indirectCRL > 0;
}

CrlSummary summaryOf(X509_CRL* crl) {
    CrlSummary summary;
    summary.issuer = nameText(X509_CRL_get_issuer(crl));
    summary.thisUpdate = timeOf(X509_CRL_get0_lastUpdate(crl));
    if (X509_CRL_get0_nextUpdate(crl) != nullptr) {
        summary.nextUpdate = timeOf(X509_CRL_get0_nextUpdate(crl));
    }
    const Bytes number = extensionValue(crl, NID_crl_number);
    if (!number.empty()) {
        const ByteView content = der::toInteger(der::readOnly(number, der::tag::Integer));
        summary.number.assign(content.begin(), content.end());
    }
    summary.delta = X509_CRL_get_ext_by_NID(crl, NID_delta_crl, -1) >= 0;
    summary.indirect = isIndirect(crl);
    summary.entries = static_cast<std::size_t>(std::max(sk_X509_REVOKED_num(X509_CRL_get_REVOKED(crl)), 0));
    return summary;
}

/// SHA-256 in hexadecimal digits.
std::string digestOf(ByteView octets) {
    Bytes digest(EVP_MAX_MD_SIZE);
    unsigned int digestSize = 0;
    if (EVP_Digest(octets.data(), octets.size(), digest.data(), &digestSize, EVP_sha256(), nullptr) != 1) {
        fail(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
    digest.resize(digestSize);
    return toHex(digest);
}

/// Name of the file that holds this CRL and its successors of the same key.
std::string fileName(const X509_CRL* crl, ByteView signerKey) {
    const unsigned char* name = nullptr;
    std::size_t size = 0;
    X509_NAME_get0_der(X509_CRL_get_issuer(crl), &name, &size);
    const bool delta = X509_CRL_get_ext_by_NID(crl, NID_delta_crl, -1) >= 0;
    return digestOf(der::sequence({ByteView(name, size), signerKey, extensionValue(crl, NID_authority_key_identifier),
                                   extensionValue(crl, NID_issuing_distribution_point), der::boolean(delta)})) +
           std::string(crlFileSuffix);
}

/// Name of the file of a CRL whose signature nobody checked.
std::string unverifiedFileName(ByteView der) {
    return "unverified-" + digestOf(der) + std::string(crlFileSuffix);
}

} // namespace

std::vector<fs::path> crlFiles(const fs::path& directory) {
    std::vector<fs::path> paths = files::entries(directory);
    std::erase_if(paths, [](const fs::path& path) {
        const std::string name = path.filename().string();
        return !name.ends_with(crlFileSuffix) || name.starts_with('.');
    });
    std::ranges::sort(paths);
    return paths;
}

std::optional<Bytes> readCrlFile(const fs::path& file) {
    try {
        const auto contents = files::read(file, largestCrl);
        auto octets = contents ? crlDer(*contents) : std::nullopt;
        if (contents && (!octets || !crlHead(*octets))) {
            noteSkipped(file, capi::ERROR_INVALID_DATA);
            return std::nullopt;
        }
        return octets;
    } catch (const ApiError& error) {
        noteSkipped(file, error.code());
        if (error.code() == capi::ERROR_INVALID_DATA || error.code() == capi::ERROR_ACCESS_DENIED) {
            return std::nullopt;
        }
        throw;
    }
}

CrlSummary summarizeCrl(ByteView contents) {
    return summaryOf(decode(contents).get());
}

CrlSummary addCrl(const fs::path& directory, ByteView contents, ByteView signerKey) {
    const ossl::X509CrlPtr crl = decode(contents);
    const Bytes der = ossl::toDer(i2d_X509_CRL, crl.get());
    const std::string unverified = unverifiedFileName(der);
    CrlSummary summary = summaryOf(crl.get());
    summary.file = signerKey.empty() ? unverified : fileName(crl.get(), signerKey);
    files::makeDirectories(directory);
    const files::Lock lock(directory);
    files::removeStaleTemporaries(directory);
    const auto held = readCrlFile(directory / summary.file);
    const auto older = held ? ossl::fromDer<ossl::X509CrlPtr>(d2i_X509_CRL, *held) : nullptr;
    if (older && timeOf(X509_CRL_get0_lastUpdate(older.get())) >= summary.thisUpdate) {
        fail(capi::CRYPT_E_EXISTS);
    }
    files::writeAtomically(directory / summary.file, der);
    if (summary.file != unverified) {
        std::error_code absent;
        fs::remove(directory / unverified, absent); // the same CRL from before its issuer was known
    }
    return summary;
}

CrlList listCrls(const fs::path& directory) {
    CrlList list;
    for (const fs::path& file : crlFiles(directory)) {
        try {
            const auto octets = files::read(file, largestCrl);
            if (octets) { // else it went meanwhile
                list.crls.push_back(summarizeCrl(*octets));
                list.crls.back().file = file.filename().string();
            }
        } catch (const ApiError& error) {
            const bool malformed = error.code() == capi::CRYPT_E_ASN1_CORRUPT;
            list.unusable.push_back({file.string(), malformed ? capi::ERROR_INVALID_DATA : error.code()});
        }
    }
    return list;
}

void deleteCrl(const fs::path& directory, const std::string& file) {
    const auto paths = crlFiles(directory);
    const auto found = std::ranges::find(paths, file, [](const fs::path& path) { return path.filename().string(); });
    if (found == paths.end()) {
        fail(capi::CRYPT_E_NOT_FOUND);
    }
    const files::Lock lock(directory);
    if (!files::removeDurably(*found)) {
        fail(capi::CRYPT_E_NOT_FOUND);
    }
}

} // namespace klunortredi::csp
