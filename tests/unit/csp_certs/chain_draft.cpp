#include "chain_draft.hpp"

#include "capi/constants.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/engine.hpp"
#include "x509/x509_der.hpp"

#include <openssl/conf.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <stdexcept>

namespace chain_draft {

namespace {

using csp::Bytes;

/// Parts of extensions that openssl.cnf only takes from sections.
constexpr const char* sections = R"(
[user]
onlyuser = TRUE
[authority]
onlyCA = TRUE
[attribute]
onlyAA = TRUE
[some_reasons]
onlysomereasons = keyCompromise, CACompromise
[other_reasons]
onlysomereasons = affiliationChanged, superseded, cessationOfOperation, certificateHold, privilegeWithdrawn, AACompromise
[place]
fullname = URI:http://crl.example.org/1.crl
[other_place]
fullname = URI:http://crl.example.org/2.crl
[indirect]
indirectCRL = TRUE
[point]
fullname = URI:http://crl.example.org/1.crl
[point_of_other]
fullname = URI:http://crl.example.org/1.crl
CRLissuer = dirName:other_name
[point_of_reasons]
fullname = URI:http://crl.example.org/1.crl
reasons = keyCompromise, CACompromise
[other_name]
CN = lists
[limited]
O = Limited
)";

void check(bool done, const std::string& what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

/// Extensions by name and value, for a certificate or a CRL of an issuer.
class Extensions {
public:
    Extensions() : conf_(NCONF_new(nullptr)) {
        const csp::ossl::Bio text(BIO_new_mem_buf(sections, -1));
        long line = 0;
        check(NCONF_load_bio(conf_, text.get(), &line) == 1, "the sections, line " + std::to_string(line));
    }
    Extensions(const Extensions&) = delete;
    Extensions& operator=(const Extensions&) = delete;
    ~Extensions() { NCONF_free(conf_); }

    template <class Add>
    void make(const Extension& wanted, X509* issuer, X509* subject, X509_CRL* crl, Add&& add) {
        X509V3_CTX context;
        X509V3_set_ctx(&context, issuer, subject, nullptr, crl, 0);
        X509V3_set_nconf(&context, conf_);
        X509_EXTENSION* const made = X509V3_EXT_nconf(conf_, &context, wanted.first.c_str(), wanted.second.c_str());
        check(made != nullptr, wanted.first + " = " + wanted.second);
        add(made);
        X509_EXTENSION_free(made);
    }

private:
    CONF* conf_;
};

Extensions& extensions() {
    static auto* const all = new Extensions;
    return *all;
}

const EVP_MD* digestFor(const EVP_PKEY* key) {
    switch (EVP_PKEY_get_id(key)) {
    case NID_id_GostR3410_2012_256:
        return csp::digestMethod(*csp::findDigest(capi::CALG_GR3411_2012_256));
    case NID_id_GostR3410_2012_512:
        return csp::digestMethod(*csp::findDigest(capi::CALG_GR3411_2012_512));
    default:
        return EVP_sha256();
    }
}

void setName(X509_NAME* name, const std::string& common, const std::string& email) {
    const auto add = [&](int nid, const std::string& value) {
        X509_NAME_add_entry_by_NID(name, nid, nid == NID_commonName ? MBSTRING_UTF8 : V_ASN1_IA5STRING,
                                   reinterpret_cast<const unsigned char*>(value.data()), static_cast<int>(value.size()),
                                   -1, 0);
    };
    add(NID_commonName, common);
    if (!email.empty()) {
        add(NID_pkcs9_emailAddress, email);
    }
}

/// A certificate of name and key alone, for what extensions take from an issuer.
csp::ossl::X509Ptr issuerOf(const std::string& name, EVP_PKEY* key) {
    csp::ossl::X509Ptr issuer(X509_new());
    X509_set_version(issuer.get(), X509_VERSION_3);
    setName(X509_get_subject_name(issuer.get()), name, "");
    X509_set_pubkey(issuer.get(), key);
    extensions().make({"subjectKeyIdentifier", "hash"}, issuer.get(), issuer.get(), nullptr,
                      [&](X509_EXTENSION* made) { X509_add_ext(issuer.get(), made, -1); });
    return issuer;
}

/// An extension under an arc that is assigned to nobody.
X509_EXTENSION* unknownExtension(bool critical) {
    ASN1_OBJECT* const object = OBJ_txt2obj("1.3.6.1.4.1.99999.1", 1);
    ASN1_OCTET_STRING* const value = ASN1_OCTET_STRING_new();
    ASN1_OCTET_STRING_set(value, reinterpret_cast<const unsigned char*>("\x05\x00"), 2);
    X509_EXTENSION* const made = X509_EXTENSION_create_by_OBJ(nullptr, object, critical ? 1 : 0, value);
    ASN1_OCTET_STRING_free(value);
    ASN1_OBJECT_free(object);
    return made;
}

Bytes finished(Bytes der, bool damaged) {
    if (damaged) {
        der.back() ^= 1U;
    }
    return der;
}

Bytes encode(const Certificate& wanted, std::time_t time, const KeyRing& ring) {
    const csp::ossl::X509Ptr made(X509_new());
    X509* const certificate = made.get();
    X509_set_version(certificate, wanted.version);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), wanted.serial);
    setName(X509_get_subject_name(certificate), wanted.subject, wanted.email);
    setName(X509_get_issuer_name(certificate), wanted.issuer, "");
    ASN1_TIME_set(X509_getm_notBefore(certificate), time + wanted.from);
    ASN1_TIME_set(X509_getm_notAfter(certificate), time + wanted.to);
    X509_set_pubkey(certificate, ring.keys[wanted.key].get());
    const Key named = wanted.named == keyCount ? wanted.signer : wanted.named;
    const csp::ossl::X509Ptr issuer = issuerOf(wanted.issuer, ring.keys[named].get());
    for (const Extension& extension : wanted.extensions) {
        extensions().make(extension, issuer.get(), certificate, nullptr,
                          [&](X509_EXTENSION* one) { X509_add_ext(certificate, one, -1); });
    }
    if (!wanted.unknown.empty()) {
        X509_EXTENSION* const unknown = unknownExtension(wanted.unknown == "critical");
        X509_add_ext(certificate, unknown, -1);
        X509_EXTENSION_free(unknown);
    }
    EVP_PKEY* const signer = ring.keys[wanted.signer].get();
    check(X509_sign(certificate, signer, digestFor(signer)) > 0, "X509_sign");
    return finished(csp::ossl::toDer(i2d_X509, certificate), wanted.damaged);
}

X509_REVOKED* entry(const Revoked& wanted, ASN1_TIME* time) {
    X509_REVOKED* const revoked = X509_REVOKED_new();
    ASN1_INTEGER* const serial = ASN1_INTEGER_new();
    ASN1_INTEGER_set(serial, wanted.serial);
    X509_REVOKED_set_serialNumber(revoked, serial);
    ASN1_INTEGER_free(serial);
    X509_REVOKED_set_revocationDate(revoked, time);
    if (wanted.reason >= 0) {
        ASN1_ENUMERATED* const reason = ASN1_ENUMERATED_new();
        ASN1_ENUMERATED_set(reason, wanted.reason);
        X509_REVOKED_add1_ext_i2d(revoked, NID_crl_reason, reason, 0, 0);
        ASN1_ENUMERATED_free(reason);
    }
    if (!wanted.issuer.empty()) {
        GENERAL_NAMES* const names = GENERAL_NAMES_new();
        GENERAL_NAME* const name = GENERAL_NAME_new();
        X509_NAME* const directory = X509_NAME_new();
        setName(directory, wanted.issuer, "");
        GENERAL_NAME_set0_value(name, GEN_DIRNAME, directory);
        sk_GENERAL_NAME_push(names, name);
        X509_REVOKED_add1_ext_i2d(revoked, NID_certificate_issuer, names, 1, 0);
        GENERAL_NAMES_free(names);
    }
    return revoked;
}

void addNumber(X509_CRL* crl, int nid, long value, bool critical) {
    ASN1_INTEGER* const number = ASN1_INTEGER_new();
    ASN1_INTEGER_set(number, value);
    X509_CRL_add1_ext_i2d(crl, nid, number, critical ? 1 : 0, 0);
    ASN1_INTEGER_free(number);
}

Bytes encode(const Crl& wanted, std::time_t time, const KeyRing& ring) {
    const csp::ossl::X509CrlPtr made(X509_CRL_new());
    X509_CRL* const crl = made.get();
    X509_CRL_set_version(crl, X509_CRL_VERSION_2);
    const csp::ossl::X509Ptr issuer = issuerOf(wanted.issuer, ring.keys[wanted.signer].get());
    X509_CRL_set_issuer_name(crl, X509_get_subject_name(issuer.get()));
    ASN1_TIME* const moment = ASN1_TIME_set(nullptr, time + wanted.from);
    X509_CRL_set1_lastUpdate(crl, moment);
    for (const Revoked& revoked : wanted.revoked) {
        X509_CRL_add0_revoked(crl, entry(revoked, moment));
    }
    ASN1_TIME_set(moment, time + wanted.to);
    X509_CRL_set1_nextUpdate(crl, moment);
    ASN1_TIME_free(moment);
    addNumber(crl, NID_crl_number, wanted.number, false);
    if (wanted.base != 0) {
        addNumber(crl, NID_delta_crl, wanted.base, true);
    }
    const auto add = [&](X509_EXTENSION* one) { X509_CRL_add_ext(crl, one, -1); };
    extensions().make({"authorityKeyIdentifier", "keyid"}, issuer.get(), nullptr, crl, add);
    for (const Extension& extension : wanted.extensions) {
        extensions().make(extension, issuer.get(), nullptr, crl, add);
    }
    if (wanted.unknownCritical) {
        X509_EXTENSION* const unknown = unknownExtension(true);
        add(unknown);
        X509_EXTENSION_free(unknown);
    }
    EVP_PKEY* const signer = ring.keys[wanted.signer].get();
    check(X509_CRL_sign(crl, signer, digestFor(signer)) > 0, "X509_CRL_sign");
    return finished(csp::ossl::toDer(i2d_X509_CRL, crl), wanted.damaged);
}

const std::vector<Extension> ofAuthority{{"basicConstraints", "critical,CA:TRUE"},
                                         {"keyUsage", "critical,keyCertSign,cRLSign"},
                                         {"subjectKeyIdentifier", "hash"},
                                         {"authorityKeyIdentifier", "keyid"}};
const std::vector<Extension> ofLeaf{
    {"keyUsage", "critical,digitalSignature"}, {"subjectKeyIdentifier", "hash"}, {"authorityKeyIdentifier", "keyid"}};

} // namespace

KeyRing::KeyRing(pki::KeyKind kind) {
    for (std::size_t i = 0; i < keyCount; ++i) {
        keys.push_back(pki::newKey(kind));
    }
}

void Certificate::set(const std::string& name, const std::string& value) {
    std::erase_if(extensions, [&](const Extension& extension) { return extension.first == name; });
    if (!value.empty()) {
        extensions.emplace_back(name, value);
    }
}

Draft::Draft()
    : certificates{{"root", "root", rootKey, rootKey, Place::anchor, 1, -20 * day, 20 * day, ofAuthority},
                   {"ca", "root", caKey, rootKey, Place::issuer, 2, -15 * day, 15 * day, ofAuthority},
                   {"sub", "ca", subKey, caKey, Place::issuer, 3, -12 * day, 12 * day, ofAuthority},
                   {"leaf", "sub", leafKey, subKey, Place::target, 4, -10 * day, 10 * day, ofLeaf},
                   // always there, so that a draft whose root is taken away still has an anchor
                   {"elsewhere", "elsewhere", spareKey, spareKey, Place::anchor, 1, -20 * day, 20 * day, ofAuthority}},
      time(std::time(nullptr)) {}

Certificate& Draft::of(const std::string& subject) {
    const auto found = std::ranges::find(certificates, subject, &Certificate::subject);
    check(found != certificates.end(), "no certificate of " + subject);
    return *found;
}

Crl& Draft::crlOf(const std::string& issuer) {
    const auto found = std::ranges::find(crls, issuer, &Crl::issuer);
    check(found != crls.end(), "no CRL of " + issuer);
    return *found;
}

void Draft::askRevocation() {
    if (!revocation) {
        revocation = true;
        crls = {{"root", rootKey}, {"ca", caKey}, {"sub", subKey}};
    }
}

chain_case::Question encode(const Draft& draft, const KeyRing& ring) {
    chain_case::Question question;
    question.time = draft.time;
    for (const Certificate& certificate : draft.certificates) {
        Bytes der = encode(certificate, draft.time, ring);
        switch (certificate.place) {
        case Place::anchor:
            question.anchors.push_back(std::move(der));
            break;
        case Place::issuer:
            question.issuers.push_back(std::move(der));
            break;
        case Place::target:
            question.target = std::move(der);
            break;
        }
    }
    for (const Crl& crl : draft.crls) {
        question.crls.push_back(encode(crl, draft.time, ring));
    }
    question.flags = draft.revocation ? capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT : 0;
    question.usage = draft.usage.empty() ? "" : "1.3.6.1.5.5.7.3.4";
    return question;
}

} // namespace chain_draft
