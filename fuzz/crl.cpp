// CRLs from a stranger, asked about a certificate of an authority made here: as they are, and signed again by that
// authority. Built with libFuzzer, and replayed by a test.

#include "authority.hpp"
#include "capi/constants.hpp"
#include "carried_store.hpp"
#include "core/ossl.hpp"
#include "exports/export.hpp"
#include "require.hpp"
#include "x509/x509_der.hpp"

#include <openssl/evp.h>
#include <openssl/x509v3.h>

#include <vector>

namespace {

using klunortredi::csp::Bytes;
using klunortredi::csp::ByteView;
namespace api = klunortredi::csp::exports;
namespace ossl = klunortredi::csp::ossl;
using fuzz::authority;
using fuzz::leafSerial;

/// Error bits of the leaf's chain with these CRLs at hand; ~0 when the CRL cannot be carried.
DWORD errorsWith(const Bytes& crl, DWORD flags) {
    void* const store = openCarriedStore({}, {crl});
    if (store == nullptr) {
        return ~DWORD{0};
    }
    void* const anchors = openCarriedStore({authority().rootDer}, {});
    const PCCERT_CONTEXT leaf = api::CertCreateCertificateContext(capi::X509_AND_PKCS_7, authority().leafDer.data(),
                                                                  static_cast<DWORD>(authority().leafDer.size()));
    CERT_CHAIN_PARA parameters{};
    parameters.cbSize = sizeof parameters;
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    DWORD errors = ~DWORD{0};
    if (api::CertGetCertificateChain(anchors, leaf, nullptr, store, &parameters,
                                     flags | capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL, nullptr, &chain) != 0) {
        errors = chain->TrustStatus.dwErrorStatus;
        api::CertFreeCertificateChain(chain);
    }
    api::CertFreeCertificateContext(leaf);
    api::CertCloseStore(anchors, 0);
    api::CertCloseStore(store, 0);
    return errors;
}

/// The CRL under the authority's name, signed by it and valid now; what else it says stays.
Bytes signedAgain(X509_CRL* crl) {
    X509_CRL_set_issuer_name(crl, X509_get_subject_name(authority().root.get()));
    ASN1_TIME* const time = ASN1_TIME_new();
    X509_gmtime_adj(time, -3600);
    X509_CRL_set1_lastUpdate(crl, time);
    X509_gmtime_adj(time, 3600);
    X509_CRL_set1_nextUpdate(crl, time);
    ASN1_TIME_free(time);
    return X509_CRL_sign(crl, authority().key.get(), EVP_sha256()) > 0 ? ossl::toDer(i2d_X509_CRL, crl) : Bytes{};
}

bool listsLeaf(const Bytes& der) {
    const auto crl = ossl::fromDer<ossl::X509CrlPtr>(d2i_X509_CRL, der);
    X509_REVOKED* entry = nullptr;
    return crl && X509_CRL_get0_by_cert(crl.get(), &entry, authority().leaf.get()) == 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr DWORD check = capi::CERT_CHAIN_REVOCATION_CHECK_END_CERT;
    constexpr DWORD cached = capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY;
    const Bytes octets(data, data + size);
    const ossl::ErrorMark mark;
    const DWORD asItIs = errorsWith(octets, check);
    require(asItIs != 0, "a CRL of another authority says nothing good");
    require(asItIs == ~DWORD{0} || (asItIs & capi::CERT_TRUST_IS_REVOKED) == 0,
            "a CRL of another authority revokes nothing");
    const auto crl = ossl::fromDer<ossl::X509CrlPtr>(d2i_X509_CRL, octets);
    if (!crl) {
        return 0;
    }
    const Bytes genuine = signedAgain(crl.get());
    if (!genuine.empty()) {
        const DWORD errors = errorsWith(genuine, check);
        require(errors != 0 || !listsLeaf(genuine), "a listed certificate is never good");
        const DWORD quiet = errorsWith(genuine, cached);
        require(quiet == ~DWORD{0} || (quiet & ~capi::CERT_TRUST_IS_REVOKED) == 0 || errors != 0,
                "what is at hand makes no other error");
    }
    return 0;
}
