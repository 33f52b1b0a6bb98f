// A store of ten thousand certificates: all of them listed, and one found in a store that is open or opened anew.

#include "capi/constants.hpp"
#include "core/ossl.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "signer.hpp"

#include <benchmark/benchmark.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace ossl = klunortredi::csp::ossl;
namespace wincrypt = orvik::plugin::wincrypt;

constexpr int certificates = 10000;
constexpr int wanted = certificates / 2;
constexpr long oneDay = 24L * 60 * 60;
constexpr const char* storeName = "ca";

std::string certificate(EVP_PKEY* key, int number) {
    const ossl::X509Ptr made(X509_new());
    X509_set_version(made.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(made.get()), number + 1);
    X509_gmtime_adj(X509_getm_notBefore(made.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(made.get()), oneDay);
    auto* const name = X509_get_subject_name(made.get());
    const std::string text = "Member " + std::to_string(number);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1,
                               0);
    X509_set_issuer_name(made.get(), name);
    X509_set_pubkey(made.get(), key);
    if (X509_sign(made.get(), key, EVP_sha256()) <= 0) {
        throw std::runtime_error("cannot sign a certificate");
    }
    unsigned char* der = nullptr;
    const int size = i2d_X509(made.get(), &der);
    std::string octets(reinterpret_cast<char*>(der), static_cast<std::size_t>(size));
    OPENSSL_free(der);
    return octets;
}

/// The filled store's certificate in its middle.
PCCERT_CONTEXT fill() {
    bench::signer(); // chooses the service and a data folder of this process
    const ossl::Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    void* const store = wincrypt::CertOpenSystemStore(0, storeName);
    PCCERT_CONTEXT middle = nullptr;
    for (int i = 0; i < certificates; ++i) {
        const std::string der = certificate(key.get(), i);
        const auto* const context = wincrypt::CertCreateCertificateContext(
            capi::X509_AND_PKCS_7, reinterpret_cast<const BYTE*>(der.data()), static_cast<DWORD>(der.size()));
        if (context == nullptr || wincrypt::CertAddCertificateContextToStore(
                                      store, context, capi::CERT_STORE_ADD_REPLACE_EXISTING, nullptr) == 0) {
            throw std::runtime_error("cannot add a certificate");
        }
        if (i == wanted) {
            middle = context;
        } else {
            wincrypt::CertFreeCertificateContext(context);
        }
    }
    wincrypt::CertCloseStore(store, 0);
    return middle;
}

PCCERT_CONTEXT middle() {
    static PCCERT_CONTEXT const context = fill();
    return context;
}

using Find = PCCERT_CONTEXT (*)(void*);

PCCERT_CONTEXT byNumber(void* store) {
    return wincrypt::CertGetSubjectCertificateFromStore(store, capi::X509_AND_PKCS_7, middle()->pCertInfo);
}

PCCERT_CONTEXT bySubject(void* store) {
    return wincrypt::CertFindCertificateInStore(store, capi::X509_AND_PKCS_7, 0, capi::CERT_FIND_SUBJECT_NAME,
                                                &middle()->pCertInfo->Subject, nullptr);
}

PCCERT_CONTEXT byThumbprint(void* store) {
    static const std::vector<BYTE> octets = [] {
        std::vector<BYTE> digest(EVP_MAX_MD_SIZE);
        unsigned size = 0;
        EVP_Digest(middle()->pbCertEncoded, middle()->cbCertEncoded, digest.data(), &size, EVP_sha1(), nullptr);
        digest.resize(size);
        return digest;
    }();
    const CRYPTOAPI_BLOB thumbprint{static_cast<DWORD>(octets.size()), const_cast<BYTE*>(octets.data())};
    return wincrypt::CertFindCertificateInStore(store, capi::X509_AND_PKCS_7, 0, capi::CERT_FIND_SHA1_HASH, &thumbprint,
                                                nullptr);
}

void require(PCCERT_CONTEXT found) {
    if (found == nullptr) {
        throw std::runtime_error("the certificate is not found");
    }
    wincrypt::CertFreeCertificateContext(found);
}

void findInOpenStore(benchmark::State& state, Find find) {
    middle();
    void* const store = wincrypt::CertOpenSystemStore(0, storeName);
    for (auto _ : state) {
        require(find(store));
    }
    wincrypt::CertCloseStore(store, 0);
}

void openAndFind(benchmark::State& state, Find find) {
    middle();
    for (auto _ : state) {
        void* const store = wincrypt::CertOpenSystemStore(0, storeName);
        require(find(store));
        wincrypt::CertCloseStore(store, 0);
    }
}

void list(benchmark::State& state) {
    middle();
    for (auto _ : state) {
        void* const store = wincrypt::CertOpenSystemStore(0, storeName);
        int count = 0;
        for (const auto* each = wincrypt::CertEnumCertificatesInStore(store, nullptr); each != nullptr;
             each = wincrypt::CertEnumCertificatesInStore(store, each)) {
            ++count;
        }
        if (count != certificates) {
            throw std::runtime_error("the list is not whole");
        }
        wincrypt::CertCloseStore(store, 0);
    }
}

BENCHMARK_CAPTURE(findInOpenStore, thumbprint, byThumbprint)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(findInOpenStore, issuerAndSerial, byNumber)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(findInOpenStore, subject, bySubject)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(openAndFind, thumbprint, byThumbprint)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(openAndFind, issuerAndSerial, byNumber)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(openAndFind, subject, bySubject)->Unit(benchmark::kMicrosecond);
BENCHMARK(list)->Unit(benchmark::kMillisecond);

} // namespace
