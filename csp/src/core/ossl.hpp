#pragma once

/// Owners for the OpenSSL objects that the service uses.

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/cms.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>

namespace klunortredi::csp::ossl {

template <auto Free>
struct Deleter {
    template <class T>
    void operator()(T* object) const noexcept {
        Free(object);
    }
};

using Bio = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using Bn = std::unique_ptr<BIGNUM, Deleter<BN_clear_free>>;
using Pkey = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using PkeyCtx = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX_free>>;
using MdCtx = std::unique_ptr<EVP_MD_CTX, Deleter<EVP_MD_CTX_free>>;
using X509Ptr = std::unique_ptr<X509, Deleter<X509_free>>;
using X509CrlPtr = std::unique_ptr<X509_CRL, Deleter<X509_CRL_free>>;
using X509NamePtr = std::unique_ptr<::X509_NAME, Deleter<X509_NAME_free>>;
using X509Pubkey = std::unique_ptr<X509_PUBKEY, Deleter<X509_PUBKEY_free>>;
using X509Sig = std::unique_ptr<X509_SIG, Deleter<X509_SIG_free>>;
using Pkcs8 = std::unique_ptr<PKCS8_PRIV_KEY_INFO, Deleter<PKCS8_PRIV_KEY_INFO_free>>;
using Asn1Object = std::unique_ptr<ASN1_OBJECT, Deleter<ASN1_OBJECT_free>>;

using OctetString = std::unique_ptr<ASN1_OCTET_STRING, Deleter<ASN1_OCTET_STRING_free>>;

/// Leaves the thread's OpenSSL error queue as it was: it belongs to the host application.
class ErrorMark {
public:
    ErrorMark() noexcept { ERR_set_mark(); }
    ErrorMark(const ErrorMark&) = delete;
    ErrorMark& operator=(const ErrorMark&) = delete;
    ~ErrorMark() { ERR_pop_to_mark(); }
};

} // namespace klunortredi::csp::ossl
