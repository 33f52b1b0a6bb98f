#pragma once

/// An authority of the process's own.

#include "core/ossl.hpp"
#include "x509/x509_der.hpp"

#include <openssl/evp.h>
#include <openssl/x509v3.h>

namespace fuzz {

using klunortredi::csp::Bytes;
namespace ossl = klunortredi::csp::ossl;

constexpr long leafSerial = 7;

inline void addExtension(X509* certificate, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_nconf_nid(nullptr, &context, nid, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

/// An authority and a certificate that it issued, valid for a day around now.
struct Authority {
    Authority() : key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256")) {
        root = make("root", 1, true);
        leaf = make("leaf", leafSerial, false);
        rootDer = ossl::toDer(i2d_X509, root.get());
        leafDer = ossl::toDer(i2d_X509, leaf.get());
    }

    ossl::X509Ptr make(const char* subject, long serial, bool isRoot) const {
        ossl::X509Ptr made(X509_new());
        X509* const certificate = made.get();
        X509_set_version(certificate, X509_VERSION_3);
        ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial);
        X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>(subject), -1, -1, 0);
        X509_set_issuer_name(certificate, X509_get_subject_name(isRoot ? certificate : root.get()));
        X509_gmtime_adj(X509_getm_notBefore(certificate), -86400);
        X509_gmtime_adj(X509_getm_notAfter(certificate), 365 * 86400L);
        X509_set_pubkey(certificate, key.get());
        if (isRoot) {
            addExtension(certificate, NID_basic_constraints, "critical,CA:TRUE");
            addExtension(certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
        }
        X509_sign(certificate, key.get(), EVP_sha256());
        return made;
    }

    ossl::Pkey key;
    ossl::X509Ptr root;
    ossl::X509Ptr leaf;
    Bytes rootDer;
    Bytes leafDer;
};

/// Made once.
inline const Authority& authority() {
    static const auto* const made = new Authority;
    return *made;
}

} // namespace fuzz
