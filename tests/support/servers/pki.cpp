#include "support/servers/pki.hpp"

#include <openssl/conf.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <ctime>

namespace test_servers {

namespace {

constexpr long daySeconds = 86400;

void addExtension(X509* certificate, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const Owned<CONF, NCONF_free> none(NCONF_new(nullptr));
    X509V3_set_nconf(&context, none.get());
    const Owned<X509_EXTENSION, X509_EXTENSION_free> extension(
        X509V3_EXT_nconf_nid(none.get(), &context, nid, value.c_str()));
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, value.c_str());
}

void setNames(X509* certificate, const std::string& name, const Identity* issuer) {
    X509_NAME* const subject = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(name.c_str()), -1,
                               -1, 0);
    X509_set_issuer_name(certificate, issuer == nullptr ? subject : X509_get_subject_name(issuer->certificate.get()));
}

std::string pemOf(BIO* memory) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory, &data);
    return {data, static_cast<std::size_t>(size)};
}

} // namespace

Certificate makeCertificate(const CertificateDraft& draft, const Key& key, const Identity* issuer, KeyKind issuerKind) {
    const Certificate made(X509_new(), X509_free);
    X509* const certificate = made.get();
    X509* const by = issuer == nullptr ? certificate : issuer->certificate.get();
    X509_set_version(certificate, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), draft.serial);
    setNames(certificate, draft.name, issuer);
    X509_gmtime_adj(X509_getm_notBefore(certificate), draft.firstDay * daySeconds);
    X509_gmtime_adj(X509_getm_notAfter(certificate), draft.lastDay * daySeconds);
    X509_set_pubkey(certificate, key.get());
    addExtension(certificate, by, NID_subject_key_identifier, "hash");
    if (issuer != nullptr) {
        addExtension(certificate, by, NID_authority_key_identifier, "keyid");
    }
    for (const auto& [nid, value] : draft.extensions) {
        addExtension(certificate, by, nid, value);
    }
    const Key& signing = issuer == nullptr ? key : issuer->key;
    require(X509_sign(certificate, signing.get(), digestOf(issuerKind)) > 0, "X509_sign");
    return made;
}

std::string toPem(const Certificate& certificate) {
    const Owned<BIO, BIO_free_all> memory(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509(memory.get(), certificate.get()) == 1, "PEM");
    return pemOf(memory.get());
}

std::string toPem(const Key& key) {
    const Owned<BIO, BIO_free_all> memory(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_PKCS8PrivateKey(memory.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1, "PEM");
    return pemOf(memory.get());
}

std::string toDer(const Certificate& certificate) {
    return toDer(certificate.get(), i2d_X509);
}

std::string certificatesOnly(const std::vector<Certificate>& certificates) {
    std::vector<std::string> encoded;
    for (const auto& certificate : certificates) {
        encoded.push_back(toDer(certificate));
    }
    const std::string data = der::sequence({der::oid("1.2.840.113549.1.7.1")});
    const std::string signedData =
        der::sequence({der::integer(1), der::setOf({}), data, der::setOf(encoded, 0xA0), der::setOf({})});
    return der::sequence({der::oid("1.2.840.113549.1.7.2"), der::tlv(0xA0, signedData)});
}

} // namespace test_servers
