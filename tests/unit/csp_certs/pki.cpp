#include "pki.hpp"

#include "capi/constants.hpp"
#include "crypto/algorithms.hpp"
#include "crypto/engine.hpp"
#include "crypto/key_pair.hpp"

#include <openssl/conf.h>

#include <stdexcept>

namespace pki {

namespace {

void check(bool done, const char* what) {
    if (!done) {
        throw std::runtime_error(what);
    }
}

csp::Bytes der(X509* certificate) {
    unsigned char* out = nullptr;
    const int size = i2d_X509(certificate, &out);
    check(size > 0, "i2d_X509");
    csp::Bytes bytes(out, out + size);
    OPENSSL_free(out);
    return bytes;
}

const EVP_MD* digestFor(const EVP_PKEY* key) {
    const int type = EVP_PKEY_get_id(key);
    if (type == NID_id_GostR3410_2012_256) {
        return csp::digestMethod(*csp::findDigest(capi::CALG_GR3411_2012_256));
    }
    if (type == NID_id_GostR3410_2012_512) {
        return csp::digestMethod(*csp::findDigest(capi::CALG_GR3411_2012_512));
    }
    return EVP_sha256();
}

csp::ossl::Pkey gostKey(ALG_ID algorithm, const char* parameterSet) {
    const csp::KeyAlgorithm& row = *csp::findKey(algorithm);
    return csp::generateGostKey(row, *csp::findGostParamSet(row, parameterSet));
}

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    CONF* const none = NCONF_new(nullptr); // policies want a configuration, be it an empty one
    X509V3_set_nconf(&context, none);
    X509_EXTENSION* const extension = X509V3_EXT_nconf_nid(none, &context, nid, value.c_str());
    NCONF_free(none);
    check(extension != nullptr, value.c_str());
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

/// An extension that is not of a certificate.
X509_EXTENSION* newExtension(int nid, const std::string& value, X509* issuer) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, issuer, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_nconf_nid(nullptr, &context, nid, value.c_str());
    check(extension != nullptr, value.c_str());
    return extension;
}

void addEntry(X509_CRL* list, long serial, ASN1_TIME* time, const WantedCrl& wanted) {
    X509_REVOKED* const revoked = X509_REVOKED_new();
    ASN1_INTEGER* const number = ASN1_INTEGER_new();
    ASN1_INTEGER_set(number, serial);
    X509_REVOKED_set_serialNumber(revoked, number);
    X509_REVOKED_set_revocationDate(revoked, time);
    ASN1_INTEGER_free(number);
    for (const auto& [nid, value] : wanted.entryExtensions) {
        X509_EXTENSION* const extension = newExtension(nid, value, nullptr);
        X509_REVOKED_add_ext(revoked, extension, -1);
        X509_EXTENSION_free(extension);
    }
    if (wanted.certificateIssuer != nullptr) {
        GENERAL_NAMES* const names = GENERAL_NAMES_new();
        GENERAL_NAME* const name = GENERAL_NAME_new();
        name->type = GEN_DIRNAME;
        name->d.directoryName = X509_NAME_dup(X509_get_subject_name(wanted.certificateIssuer->certificate.get()));
        sk_GENERAL_NAME_push(names, name);
        X509_REVOKED_add1_ext_i2d(revoked, NID_certificate_issuer, names, 1, 0);
        GENERAL_NAMES_free(names);
    }
    X509_CRL_add0_revoked(list, revoked);
}

} // namespace

csp::ossl::Pkey newKey(KeyKind kind) {
    switch (kind) {
    case KeyKind::Rsa:
        return csp::ossl::Pkey(EVP_RSA_gen(2048));
    case KeyKind::Gost256:
        return gostKey(capi::CALG_GR3410_12_256, "1.2.643.7.1.2.1.1.1");
    case KeyKind::Gost512:
        return gostKey(capi::CALG_GR3410_12_512, "1.2.643.7.1.2.1.2.1");
    default:
        return csp::ossl::Pkey(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    }
}

Entity make(const Wanted& wanted) {
    Entity entity;
    if (wanted.reuseKey != nullptr) {
        EVP_PKEY_up_ref(wanted.reuseKey);
        entity.key.reset(wanted.reuseKey);
    } else {
        entity.key = newKey(wanted.kind);
    }
    X509* const certificate = X509_new();
    entity.certificate.reset(certificate);
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), wanted.serial);
    X509_NAME_add_entry_by_NID(X509_get_subject_name(certificate), NID_commonName, MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(wanted.subject.data()),
                               static_cast<int>(wanted.subject.size()), -1, 0);
    X509* const issuer = wanted.issuer == nullptr ? certificate : wanted.issuer->certificate.get();
    X509_set_issuer_name(certificate, X509_get_subject_name(issuer));
    check(ASN1_TIME_set(X509_getm_notBefore(certificate), wanted.notBefore) != nullptr, "notBefore");
    check(ASN1_TIME_set(X509_getm_notAfter(certificate), wanted.notAfter) != nullptr, "notAfter");
    check(X509_set_pubkey(certificate, entity.key.get()) == 1, "X509_set_pubkey");
    for (const auto& [nid, value] : wanted.extensions) {
        addExtension(certificate, issuer, nid, value);
    }
    if (wanted.change) {
        wanted.change(certificate);
    }
    EVP_PKEY* const signer = wanted.issuer == nullptr ? entity.key.get() : wanted.issuer->key.get();
    check(X509_sign(certificate, signer, wanted.digest != nullptr ? wanted.digest : digestFor(signer)) > 0,
          "X509_sign");
    entity.der = der(certificate);
    entity.certificate = decode(entity.der);
    return entity;
}

Entity root(const std::string& subject, KeyKind kind) {
    return make({.subject = subject,
                 .kind = kind,
                 .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                {NID_key_usage, "critical,keyCertSign,cRLSign"},
                                {NID_subject_key_identifier, "hash"}}});
}

Entity intermediate(const std::string& subject, const Entity& issuer, long serial) {
    return make({.subject = subject,
                 .issuer = &issuer,
                 .serial = serial,
                 .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                {NID_key_usage, "critical,keyCertSign,cRLSign"},
                                {NID_subject_key_identifier, "hash"},
                                {NID_authority_key_identifier, "keyid"}}});
}

csp::Bytes crl(const Entity& issuer, const std::vector<long>& revokedSerials) {
    return makeCrl(issuer, WantedCrl{.serials = revokedSerials});
}

csp::Bytes makeCrl(const Entity& issuer, const WantedCrl& wanted) {
    const csp::ossl::X509CrlPtr list(X509_CRL_new());
    X509_CRL_set_version(list.get(), X509_CRL_VERSION_2);
    X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(issuer.certificate.get()));
    ASN1_TIME* const time = ASN1_TIME_set(nullptr, wanted.thisUpdate);
    X509_CRL_set1_lastUpdate(list.get(), time);
    if (wanted.nextUpdate != 0) {
        ASN1_TIME_set(time, wanted.nextUpdate);
        X509_CRL_set1_nextUpdate(list.get(), time);
    }
    ASN1_TIME_set(time, wanted.revoked);
    for (const long serial : wanted.serials) {
        addEntry(list.get(), serial, time, wanted);
    }
    ASN1_TIME_free(time);
    for (const auto& [nid, value] : wanted.extensions) {
        X509_EXTENSION* const extension = newExtension(nid, value, issuer.certificate.get());
        X509_CRL_add_ext(list.get(), extension, -1);
        X509_EXTENSION_free(extension);
    }
    const EVP_MD* const digest = wanted.digest != nullptr ? wanted.digest : digestFor(issuer.key.get());
    check(X509_CRL_sign(list.get(), issuer.key.get(), digest) > 0, "X509_CRL_sign");
    unsigned char* out = nullptr;
    const int size = i2d_X509_CRL(list.get(), &out);
    csp::Bytes bytes(out, out + size);
    OPENSSL_free(out);
    return bytes;
}

csp::ossl::X509Ptr decode(csp::ByteView octets) {
    const unsigned char* position = octets.data();
    csp::ossl::X509Ptr certificate(d2i_X509(nullptr, &position, static_cast<long>(octets.size())));
    check(certificate != nullptr, "d2i_X509");
    return certificate;
}

} // namespace pki
