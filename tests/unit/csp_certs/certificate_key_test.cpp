#include "service.hpp"

#include "objects/sign_and_encode.hpp"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <barrier>
#include <thread>

namespace {

constexpr const char* pin = "12345678";

/// A container with a key pair for exchange, and a certificate of that key.
class CertificateKey : public ServiceTest {
protected:
    CertificateKey() {
        unsigned long provider = 0;
        unsigned long key = 0;
        EXPECT_TRUE(
            api::CryptAcquireContextW(&provider, L"ключ", nullptr, capi::PROV_GOST_2012_256, capi::CRYPT_NEWKEYSET));
        EXPECT_TRUE(api::CryptSetProvParam(provider, capi::PP_KEYEXCHANGE_PIN, reinterpret_cast<const BYTE*>(pin),
                                           capi::PIN_SET_NEW));
        EXPECT_TRUE(api::CryptGenKey(provider, capi::AT_KEYEXCHANGE, 0, &key));
        DWORD size = 0;
        EXPECT_TRUE(api::CryptExportPublicKeyInfo(provider, capi::AT_KEYEXCHANGE, encodings, nullptr, &size));
        publicKey_.resize((size + 7) / 8);
        EXPECT_TRUE(api::CryptExportPublicKeyInfo(provider, capi::AT_KEYEXCHANGE, encodings, publicKey(), &size));
        api::CryptDestroyKey(key);
        EXPECT_TRUE(api::CryptReleaseContext(provider, 0));
    }

    CERT_PUBLIC_KEY_INFO* publicKey() { return reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(publicKey_.data()); }

    void link(PCCERT_CONTEXT context, DWORD keySpec = capi::AT_KEYEXCHANGE, DWORD flags = 0) {
        std::wstring container = L"ключ";
        const CRYPT_KEY_PROV_INFO info{container.data(), nullptr, capi::PROV_GOST_2012_256, flags, 0, nullptr, keySpec};
        ASSERT_TRUE(api::CertSetCertificateContextProperty(context, capi::CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
    }

    unsigned long open() {
        unsigned long provider = 0;
        EXPECT_TRUE(api::CryptAcquireContextW(&provider, L"ключ", nullptr, capi::PROV_GOST_2012_256, 0));
        return provider;
    }

    std::vector<std::uint64_t> publicKey_;
    Context certificate_ = contextOf(pki::make({.subject = "Another key", .kind = pki::KeyKind::Gost256}).der);
};

TEST_F(CertificateKey, IsNotFoundWithoutTheProperty) {
    unsigned long provider = 7;
    EXPECT_FALSE(api::CryptAcquireCertificatePrivateKey(certificate_.get(), 0, nullptr, &provider, nullptr, nullptr));
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NO_KEY_PROPERTY);
    EXPECT_EQ(provider, 0U);
    EXPECT_FALSE(api::CryptAcquireCertificatePrivateKey(certificate_.get(), 0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
    EXPECT_FALSE(api::CryptAcquireCertificatePrivateKey(nullptr, 0, nullptr, &provider, nullptr, nullptr));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
}

TEST_F(CertificateKey, IsTheCallersToFreeUnlessCached) {
    link(certificate_.get());
    unsigned long provider = 0;
    DWORD keySpec = 0;
    BOOL callerFrees = 0;
    ASSERT_TRUE(api::CryptAcquireCertificatePrivateKey(certificate_.get(), capi::CRYPT_ACQUIRE_PREFER_NCRYPT_KEY_FLAG,
                                                       nullptr, &provider, &keySpec, &callerFrees));
    EXPECT_TRUE(callerFrees);
    EXPECT_EQ(keySpec, capi::AT_KEYEXCHANGE);
    EXPECT_TRUE(api::CryptReleaseContext(provider, 0));
}

TEST_F(CertificateKey, StaysWithTheCertificateWhenCached) {
    link(certificate_.get());
    unsigned long first = 0;
    unsigned long second = 0;
    BOOL callerFrees = 1;
    ASSERT_TRUE(api::CryptAcquireCertificatePrivateKey(certificate_.get(), capi::CRYPT_ACQUIRE_CACHE_FLAG, nullptr,
                                                       &first, nullptr, &callerFrees));
    EXPECT_FALSE(callerFrees);
    ASSERT_TRUE(api::CryptAcquireCertificatePrivateKey(certificate_.get(), capi::CRYPT_ACQUIRE_CACHE_FLAG, nullptr,
                                                       &second, nullptr, nullptr));
    EXPECT_EQ(first, second);
    certificate_.reset();
    EXPECT_FALSE(api::CryptReleaseContext(first, 0)) << "released with the certificate";
}

TEST_F(CertificateKey, IsOneForAllThreadsThatCacheItAtOnce) {
    constexpr std::size_t threadCount = 4;
    std::atomic<int> refusals = 0;
    for (int round = 0; round < 50; ++round) {
        const Context certificate = contextOf(pki::make({.subject = "Key", .kind = pki::KeyKind::Gost256}).der);
        link(certificate.get());
        std::array<unsigned long, threadCount> handles{};
        std::barrier start(threadCount);
        std::vector<std::thread> threads;
        for (unsigned long& handle : handles) {
            threads.emplace_back([&] {
                start.arrive_and_wait();
                refusals += api::CryptAcquireCertificatePrivateKey(certificate.get(), capi::CRYPT_ACQUIRE_CACHE_FLAG,
                                                                   nullptr, &handle, nullptr, nullptr)
                                ? 0
                                : 1;
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_THAT(handles, testing::Each(handles[0]));
        DWORD size = 0;
        EXPECT_TRUE(api::CryptGetProvParam(handles[0], capi::PP_NAME, nullptr, &size, 0)) << "still open";
    }
    EXPECT_EQ(refusals, 0);
}

TEST_F(CertificateKey, IsAcquiredAnewWhenTheCachedHandleIsGone) {
    link(certificate_.get());
    unsigned long first = 0;
    unsigned long second = 0;
    ASSERT_TRUE(api::CryptAcquireCertificatePrivateKey(certificate_.get(), capi::CRYPT_ACQUIRE_CACHE_FLAG, nullptr,
                                                       &first, nullptr, nullptr));
    ASSERT_TRUE(api::CryptReleaseContext(first, 0));
    ASSERT_TRUE(api::CryptAcquireCertificatePrivateKey(certificate_.get(), capi::CRYPT_ACQUIRE_CACHE_FLAG, nullptr,
                                                       &second, nullptr, nullptr));
    EXPECT_NE(first, second);
}

TEST_F(CertificateKey, IsCachedWhereThePropertySaysSo) {
    link(certificate_.get(), capi::AT_KEYEXCHANGE, 1);
    unsigned long provider = 0;
    BOOL callerFrees = 1;
    ASSERT_TRUE(
        api::CryptAcquireCertificatePrivateKey(certificate_.get(), 2, nullptr, &provider, nullptr, &callerFrees));
    EXPECT_FALSE(callerFrees);
}

TEST_F(CertificateKey, MustBeTheCertificatesWhenCompared) {
    link(certificate_.get());
    unsigned long provider = 0;
    EXPECT_FALSE(api::CryptAcquireCertificatePrivateKey(certificate_.get(), capi::CRYPT_ACQUIRE_COMPARE_KEY_FLAG,
                                                        nullptr, &provider, nullptr, nullptr));
    EXPECT_EQ(api::GetLastError(), capi::NTE_BAD_PUBLIC_KEY);
}

TEST_F(CertificateKey, IsOfTheSpecThatTheContainerHas) {
    link(certificate_.get(), capi::AT_SIGNATURE);
    unsigned long provider = 0;
    DWORD keySpec = 0;
    ASSERT_TRUE(api::CryptAcquireCertificatePrivateKey(certificate_.get(), 0, nullptr, &provider, &keySpec, nullptr));
    EXPECT_EQ(keySpec, capi::AT_KEYEXCHANGE);
    api::CryptReleaseContext(provider, 0);
}

TEST_F(CertificateKey, IsRefusedWhenTheContainerIsGone) {
    link(certificate_.get());
    std::filesystem::remove_all(home_);
    unsigned long provider = 0;
    EXPECT_FALSE(api::CryptAcquireCertificatePrivateKey(certificate_.get(), 0, nullptr, &provider, nullptr, nullptr));
    EXPECT_EQ(api::GetLastError(), capi::NTE_BAD_KEYSET);
}

/// Signing of requests with the key of the container.
class RequestSigning : public CertificateKey {
protected:
    RequestSigning() {
        info_.Subject = certificate_->pCertInfo->Subject;
        info_.SubjectPublicKeyInfo = *publicKey();
        algorithm_.pszObjId = oid_.data();
    }
    ~RequestSigning() override { api::CryptReleaseContext(provider_, 0); }

    bool sign(BYTE* buffer, DWORD* size, DWORD structType = capi::X509_CERT_REQUEST_TO_BE_SIGNED) {
        return api::CryptSignAndEncodeCertificate(provider_, capi::AT_KEYEXCHANGE, encodings, storeProvider(structType),
                                                  &info_, &algorithm_, nullptr, buffer, size) != 0;
    }

    unsigned long provider_ = open();
    std::string oid_ = "1.2.643.7.1.1.3.2";
    CERT_REQUEST_INFO info_{};
    CRYPT_ALGORITHM_IDENTIFIER algorithm_{};
};

TEST_F(RequestSigning, TellsTheExactSizeWithoutThePin) {
    DWORD size = 0;
    ASSERT_TRUE(sign(nullptr, &size));
    csp::Bytes request(size);
    EXPECT_FALSE(sign(request.data(), &size));
    EXPECT_EQ(api::GetLastError(), capi::SCARD_W_CARD_NOT_AUTHENTICATED);
    ASSERT_TRUE(api::CryptSetProvParam(provider_, capi::PP_KEYEXCHANGE_PIN, reinterpret_cast<const BYTE*>(pin),
                                       capi::PIN_PRESENT));
    size = static_cast<DWORD>(request.size());
    ASSERT_TRUE(sign(request.data(), &size));
    EXPECT_EQ(size, request.size());

    const unsigned char* position = request.data();
    X509_REQ* const decoded = d2i_X509_REQ(nullptr, &position, size);
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(position, request.data() + size);
    EXPECT_EQ(X509_REQ_verify(decoded, X509_REQ_get0_pubkey(decoded)), 1);
    X509_REQ_free(decoded);
}

TEST_F(RequestSigning, TellsTheSizeThatAShortBufferLacks) {
    DWORD needed = 0;
    ASSERT_TRUE(sign(nullptr, &needed));
    csp::Bytes request(needed);
    DWORD size = needed - 1;
    EXPECT_FALSE(sign(request.data(), &size));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_MORE_DATA);
    EXPECT_EQ(size, needed);
    EXPECT_FALSE(sign(request.data(), nullptr));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
}

TEST_F(RequestSigning, RefusesAnAlgorithmThatIsNotTheKeys) {
    const std::vector<std::pair<std::string, DWORD>> refused{{"1.2.643.7.1.1.3.3", capi::NTE_BAD_ALGID},
                                                             {"1.2.840.113549.1.1.11", capi::NTE_BAD_ALGID},
                                                             {"1.2.643.7.1.1.1.1", capi::NTE_BAD_ALGID},
                                                             {"1.2.3.4", capi::CRYPT_E_UNKNOWN_ALGO}};
    for (const auto& [oid, code] : refused) {
        oid_ = oid;
        algorithm_.pszObjId = oid_.data();
        DWORD size = 0;
        EXPECT_FALSE(sign(nullptr, &size)) << oid;
        EXPECT_EQ(api::GetLastError(), code) << oid;
    }
    algorithm_.pszObjId = nullptr;
    DWORD size = 0;
    EXPECT_FALSE(sign(nullptr, &size));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
}

TEST_F(RequestSigning, RefusesAStructureThatIsNotSigned) {
    DWORD size = 0;
    EXPECT_FALSE(sign(nullptr, &size, capi::X509_NAME));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(api::CryptSignAndEncodeCertificate(12345, 1, encodings, storeProvider(4), &info_, &algorithm_, nullptr,
                                                    nullptr, &size));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_HANDLE);
}

} // namespace
