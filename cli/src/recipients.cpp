#include "recipients.hpp"

#include "capi/constants.hpp"
#include "failure.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "text.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <set>

namespace klunortredi::cli {

namespace {

using orvik::plugin::crypto::ICertificate;

enum class KeyKind { gost2012, gost2001, rsa, other };

struct KeyRow {
    std::string_view oid;
    KeyKind kind;
};
constexpr std::array keyRows{
    KeyRow{"1.2.643.7.1.1.1.1", KeyKind::gost2012}, KeyRow{"1.2.643.7.1.1.1.2", KeyKind::gost2012},
    KeyRow{"1.2.643.2.2.19", KeyKind::gost2001},    KeyRow{"1.2.643.2.2.98", KeyKind::gost2001},
    KeyRow{"1.2.840.113549.1.1.1", KeyKind::rsa},
};

KeyKind kindOf(const ICertificate& certificate) {
    const auto key = certificate.publicKey();
    const std::string oid = key ? key->algObjId() : std::string();
    const auto* const row = std::find_if(keyRows.begin(), keyRows.end(), [&](const KeyRow& r) { return r.oid == oid; });
    return row == keyRows.end() ? KeyKind::other : row->kind;
}

/// The stores where certificates of others are, and our own.
std::vector<CertificatePtr> knownCertificates() {
    std::vector<CertificatePtr> all;
    std::set<std::string> seen;
    for (const char* const store : {"my", "addressbook", "ca"}) {
        for (auto& certificate : storeCertificates(store)) {
            if (seen.insert(thumbprintOf(*certificate)).second) {
                all.push_back(std::move(certificate));
            }
        }
    }
    return all;
}

/// Whether it names a file: also one that cannot be looked at, so that the reason is reported.
bool namesFile(const std::string& to) {
    struct stat status {};
    if (::stat(to.c_str(), &status) == 0) {
        return !S_ISDIR(status.st_mode);
    }
    return errno != ENOENT && errno != ENOTDIR && errno != ENAMETOOLONG;
}

} // namespace

CertificatePtr findRecipient(const std::string& to) {
    if (to == "-" || namesFile(to)) {
        return readCertificate(to);
    }
    return findCertificate(knownCertificates(), to, "the stores my, addressbook and ca");
}

std::string unfitnessToEncryptFor(const ICertificate& certificate) {
    const auto now = boost::posix_time::second_clock::universal_time();
    if (now > certificate.notAfter()) {
        return "the certificate expired on " + text::time(certificate.notAfter());
    }
    if (now < certificate.notBefore()) {
        return "the certificate is not valid before " + text::time(certificate.notBefore());
    }
    constexpr unsigned encrypts = capi::CERT_KEY_ENCIPHERMENT_KEY_USAGE | capi::CERT_DATA_ENCIPHERMENT_KEY_USAGE |
                                  capi::CERT_KEY_AGREEMENT_KEY_USAGE;
    const auto usage = certificate.keyUsage();
    if (usage && (*usage & encrypts) == 0) {
        return "its key usage is " + text::joined(text::keyUsage(*usage)) + ", not encryption";
    }
    return {};
}

const ContentCipher& chooseCipher(const std::vector<CertificatePtr>& recipients, const std::string& name) {
    const std::string what = "cannot encrypt";
    std::set<KeyKind> kinds;
    for (const auto& recipient : recipients) {
        kinds.insert(kindOf(*recipient));
        if (kinds.count(KeyKind::other) != 0) {
            throw Failure(ExitCode::service, what + " for " + titleOf(*recipient),
                          "its key is neither of GOST R 34.10 nor of RSA");
        }
    }
    const bool rsa = kinds.count(KeyKind::rsa) != 0;
    if (rsa && kinds.size() > 1) {
        throw Failure(ExitCode::usage, what, "GOST and RSA recipients need different ciphers",
                      "encrypt once for each kind");
    }
    if (name.empty()) {
        return contentCipher(rsa                                   ? "aes-256-gcm"
                             : kinds.count(KeyKind::gost2001) != 0 ? "gost28147-89"
                                                                   : "kuznyechik-ctr-acpkm-omac");
    }
    const ContentCipher& cipher = contentCipher(name);
    if (cipher.gost == rsa) {
        throw Failure(ExitCode::usage, what + " with " + std::string(cipher.name),
                      std::string("it is not for ") + (rsa ? "RSA" : "GOST") + " keys");
    }
    return cipher;
}

} // namespace klunortredi::cli
