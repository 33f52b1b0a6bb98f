#pragma once

/// An authority whose keys are the same in every run: an identifier of a certificate in an answer about its status
/// holds the digest of its issuer's key, so that what a run found would mean nothing to the next one.

#include "core/ossl.hpp"
#include "x509/x509_der.hpp"

#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include <array>
#include <cstdint>
#include <initializer_list>
#include <utility>

namespace fuzz {

using klunortredi::csp::Bytes;
namespace ossl = klunortredi::csp::ossl;

constexpr long rootSerial = 1;
constexpr long leafSerial = 7;
constexpr long responderSerial = 8;

/// A P-256 key whose private number is `octet` in each of its octets. It protects nothing.
inline ossl::Pkey fixedKey(std::uint8_t octet) {
    // ECPrivateKey (RFC 5915) without its public key, which OpenSSL computes.
    constexpr std::array<std::uint8_t, 7> head{0x30, 0x31, 0x02, 0x01, 0x01, 0x04, 0x20};
    constexpr std::size_t numberSize = 32;
    constexpr std::array<std::uint8_t, 12> curve{0xA0, 0x0A, 0x06, 0x08, 0x2A, 0x86,
                                                 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
    Bytes der(head.begin(), head.end());
    der.insert(der.end(), numberSize, octet);
    der.insert(der.end(), curve.begin(), curve.end());
    const unsigned char* at = der.data();
    return ossl::Pkey(d2i_PrivateKey(EVP_PKEY_EC, nullptr, &at, static_cast<long>(der.size())));
}

inline void addExtension(X509* certificate, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* const extension = X509V3_EXT_nconf_nid(nullptr, &context, nid, value);
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

constexpr std::uint8_t authorityKey = 'A';
constexpr std::uint8_t responderKey = 'R';

/// An authority, a certificate that it issued, and one for a responder of its, valid from a day ago for a year.
struct Authority {
    Authority() : key(fixedKey(authorityKey)), keyOfResponder(fixedKey(responderKey)) {
        root = make("root", rootSerial, key.get(),
                    {{NID_basic_constraints, "critical,CA:TRUE"}, {NID_key_usage, "critical,keyCertSign,cRLSign"}});
        leaf = make("leaf", leafSerial, key.get(), {});
        responder = make("responder", responderSerial, keyOfResponder.get(),
                         {{NID_key_usage, "critical,digitalSignature"}, {NID_ext_key_usage, "OCSPSigning"}});
        rootDer = ossl::toDer(i2d_X509, root.get());
        leafDer = ossl::toDer(i2d_X509, leaf.get());
    }

    ossl::X509Ptr make(const char* subject, long serial, EVP_PKEY* subjectKey,
                       std::initializer_list<std::pair<int, const char*>> extensions) const {
        ossl::X509Ptr made(X509_new());
        X509* const certificate = made.get();
        X509_set_version(certificate, X509_VERSION_3);
        ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial);
        X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>(subject), -1, -1, 0);
        X509_set_issuer_name(certificate, X509_get_subject_name(root ? root.get() : certificate));
        X509_gmtime_adj(X509_getm_notBefore(certificate), -86400);
        X509_gmtime_adj(X509_getm_notAfter(certificate), 365 * 86400L);
        X509_set_pubkey(certificate, subjectKey);
        for (const auto& [nid, value] : extensions) {
            addExtension(certificate, nid, value);
        }
        X509_sign(certificate, key.get(), EVP_sha256());
        return made;
    }

    ossl::Pkey key;
    ossl::Pkey keyOfResponder;
    ossl::X509Ptr root;
    ossl::X509Ptr leaf;
    ossl::X509Ptr responder;
    Bytes rootDer;
    Bytes leafDer;
};

/// Made once.
inline const Authority& authority() {
    static const auto* const made = new Authority;
    return *made;
}

} // namespace fuzz
