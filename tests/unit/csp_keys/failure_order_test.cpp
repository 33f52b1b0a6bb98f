// Each entry point through its failures in order: bad argument, bad handle, wrong state, short buffer, success.

#include "service.hpp"

namespace csp_keys {

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;

class FailureOrder : public ServiceTest {
protected:
    FailureOrder() {
        makeContainer(gost, L"c", "");
        context_ = std::make_unique<Context>(gost, L"c", 0);
        CryptGetUserKey(context_->get(), capi::AT_KEYEXCHANGE, &key_);
        CryptCreateHash(context_->get(), capi::CALG_GR3411_2012_256, 0, 0, &hash_);
    }
    ~FailureOrder() override {
        CryptDestroyHash(hash_);
        CryptDestroyKey(key_);
    }
    [[nodiscard]] unsigned long prov() const { return context_->get(); }
    /// No handle, a made-up one, and handles of the other kinds.
    [[nodiscard]] std::vector<unsigned long> notProviders() const { return {0, 1, ~0UL, key_, hash_}; }
    [[nodiscard]] std::vector<unsigned long> notKeys() const { return {0, 1, ~0UL, prov(), hash_}; }
    [[nodiscard]] std::vector<unsigned long> notHashes() const { return {0, 1, ~0UL, prov(), key_}; }

    std::unique_ptr<Context> context_;
    unsigned long key_ = 0;
    unsigned long hash_ = 0;
    DWORD size_ = 0;
    BYTE octet_ = 0;
    unsigned long out_ = 0;
};

constexpr DWORD badArgument = capi::ERROR_INVALID_PARAMETER;
constexpr DWORD badHandle = capi::ERROR_INVALID_HANDLE;

} // namespace

TEST_F(FailureOrder, Contexts) {
    EXPECT_TRUE(refused(CryptAcquireContextW(nullptr, nullptr, nullptr, gost, verifyOnly), badArgument));
    EXPECT_TRUE(refused(CryptContextAddRef(prov(), &size_, 0), badArgument));
    for (const unsigned long handle : notProviders()) {
        EXPECT_TRUE(refused(CryptReleaseContext(handle, 0), badHandle));
        EXPECT_TRUE(refused(CryptContextAddRef(handle, nullptr, 0), badHandle));
    }
    EXPECT_TRUE(refused(CryptReleaseContext(prov(), 1), capi::NTE_BAD_FLAGS));
    EXPECT_TRUE(refused(CryptContextAddRef(prov(), nullptr, 1), capi::NTE_BAD_FLAGS));
    EXPECT_TRUE(CryptContextAddRef(prov(), nullptr, 0));
    EXPECT_TRUE(CryptReleaseContext(prov(), 0));
}

TEST_F(FailureOrder, ProviderEnumeration) {
    DWORD type = 0;
    EXPECT_TRUE(refused(CryptEnumProviders(0, &size_, 0, &type, nullptr, &size_), badArgument));
    EXPECT_TRUE(refused(CryptEnumProviders(0, nullptr, 0, nullptr, nullptr, &size_), badArgument));
    EXPECT_TRUE(refused(CryptEnumProviders(0, nullptr, 0, &type, nullptr, nullptr), badArgument));
    EXPECT_TRUE(refused(CryptEnumProviders(0, nullptr, 1, &type, nullptr, &size_), capi::NTE_BAD_FLAGS));
    EXPECT_TRUE(refused(CryptEnumProviders(4, nullptr, 0, &type, nullptr, &size_), capi::ERROR_NO_MORE_ITEMS));
    EXPECT_TRUE(CryptEnumProviders(3, nullptr, 0, &type, nullptr, &size_));
}

TEST_F(FailureOrder, ProviderParameters) {
    EXPECT_TRUE(refused(CryptGetProvParam(prov(), capi::PP_NAME, nullptr, nullptr, 0), badArgument));
    EXPECT_TRUE(refused(CryptSetProvParam(prov(), capi::PP_KEYEXCHANGE_PIN, nullptr, 0), badArgument));
    for (const unsigned long handle : notProviders()) {
        EXPECT_TRUE(refused(CryptGetProvParam(handle, capi::PP_NAME, nullptr, &size_, 0), badHandle));
        EXPECT_TRUE(refused(CryptSetProvParam(handle, capi::PP_KEYEXCHANGE_PIN, &octet_, 0), badHandle));
    }
    EXPECT_TRUE(refused(CryptGetProvParam(prov(), 9999, nullptr, &size_, 0), capi::NTE_BAD_TYPE));
    EXPECT_TRUE(refused(CryptSetProvParam(prov(), 9999, &octet_, 0), capi::NTE_BAD_TYPE));
    EXPECT_TRUE(refused(CryptSetProvParam(prov(), capi::PP_NAME, &octet_, 0), capi::NTE_BAD_TYPE));
    EXPECT_TRUE(refused(CryptGetProvParam(prov(), capi::PP_KEYEXCHANGE_PIN, nullptr, &size_, 0), capi::NTE_BAD_TYPE));
    size_ = 1;
    EXPECT_TRUE(refused(CryptGetProvParam(prov(), capi::PP_PROVTYPE, &octet_, &size_, 0), capi::ERROR_MORE_DATA));
    EXPECT_EQ(size_, 4U);
}

TEST_F(FailureOrder, Keys) {
    EXPECT_TRUE(refused(CryptGetUserKey(prov(), 1, nullptr), badArgument));
    EXPECT_TRUE(refused(CryptGenKey(prov(), 1, 0, nullptr), badArgument));
    for (const unsigned long handle : notProviders()) {
        EXPECT_TRUE(refused(CryptGetUserKey(handle, 1, &out_), badHandle));
        EXPECT_TRUE(refused(CryptGenKey(handle, 1, 0, &out_), badHandle));
    }
    EXPECT_TRUE(refused(CryptGetUserKey(prov(), 2, &out_), capi::NTE_NO_KEY));
    EXPECT_TRUE(refused(CryptGetUserKey(prov(), 3, &out_), capi::NTE_NO_KEY));
    EXPECT_TRUE(refused(CryptGenKey(prov(), capi::CALG_RSA_SIGN, 0, &out_), capi::NTE_BAD_ALGID));
    EXPECT_TRUE(refused(CryptGenKey(prov(), 2, 2, &out_), capi::NTE_BAD_FLAGS));
    EXPECT_TRUE(refused(CryptGenKey(prov(), 1, 0, &out_), capi::NTE_EXISTS));
    EXPECT_EQ(out_, 0U);
}

TEST_F(FailureOrder, KeyParameters) {
    EXPECT_TRUE(refused(CryptGetKeyParam(key_, capi::KP_ALGID, nullptr, nullptr, 0), badArgument));
    EXPECT_TRUE(refused(CryptSetKeyParam(key_, capi::KP_CERTIFICATE, nullptr, 0), badArgument));
    for (const unsigned long handle : notKeys()) {
        EXPECT_TRUE(refused(CryptGetKeyParam(handle, capi::KP_ALGID, nullptr, &size_, 0), capi::NTE_BAD_KEY));
        EXPECT_TRUE(refused(CryptSetKeyParam(handle, capi::KP_CERTIFICATE, &octet_, 0), capi::NTE_BAD_KEY));
        EXPECT_TRUE(refused(CryptDestroyKey(handle), capi::NTE_BAD_KEY));
    }
    EXPECT_TRUE(refused(CryptGetKeyParam(key_, capi::KP_ALGID, nullptr, &size_, 1), capi::NTE_BAD_FLAGS));
    EXPECT_TRUE(refused(CryptSetKeyParam(key_, capi::KP_CERTIFICATE, &octet_, 1), capi::NTE_BAD_FLAGS));
    size_ = 3;
    EXPECT_TRUE(refused(CryptGetKeyParam(key_, capi::KP_ALGID, &octet_, &size_, 0), capi::ERROR_MORE_DATA));
    EXPECT_EQ(size_, 4U);
}

TEST_F(FailureOrder, PublicKeys) {
    PublicKeyInfo info(prov(), 1);
    EXPECT_TRUE(refused(CryptExportPublicKeyInfo(prov(), 1, 1, nullptr, nullptr), badArgument));
    EXPECT_TRUE(refused(CryptExportPublicKeyInfo(prov(), 1, 0, nullptr, &size_), badArgument));
    EXPECT_TRUE(refused(CryptImportPublicKeyInfo(prov(), 1, nullptr, &out_), badArgument));
    EXPECT_TRUE(refused(CryptImportPublicKeyInfo(prov(), 1, info.get(), nullptr), badArgument));
    EXPECT_TRUE(refused(CryptImportPublicKeyInfo(prov(), 0, info.get(), &out_), badArgument));
    for (const unsigned long handle : notProviders()) {
        EXPECT_TRUE(refused(CryptExportPublicKeyInfo(handle, 1, 1, nullptr, &size_), badHandle));
        EXPECT_TRUE(refused(CryptImportPublicKeyInfo(handle, 1, info.get(), &out_), badHandle));
    }
    EXPECT_TRUE(refused(CryptExportPublicKeyInfo(prov(), 2, 1, nullptr, &size_), capi::NTE_NO_KEY));
    size_ = sizeof(CERT_PUBLIC_KEY_INFO);
    EXPECT_TRUE(refused(CryptExportPublicKeyInfo(prov(), 1, 1, info.get(), &size_), capi::ERROR_MORE_DATA));
    EXPECT_GT(size_, sizeof(CERT_PUBLIC_KEY_INFO));
    CERT_PUBLIC_KEY_INFO empty{};
    EXPECT_TRUE(refused(CryptImportPublicKeyInfo(prov(), 1, &empty, &out_), badArgument));
}

TEST_F(FailureOrder, Hashes) {
    constexpr ALG_ID streebog = capi::CALG_GR3411_2012_256;
    EXPECT_TRUE(refused(CryptCreateHash(prov(), streebog, 0, 0, nullptr), badArgument));
    EXPECT_TRUE(refused(CryptHashData(hash_, nullptr, 1, 0), badArgument));
    EXPECT_TRUE(refused(CryptGetHashParam(hash_, capi::HP_ALGID, nullptr, nullptr, 0), badArgument));
    for (const unsigned long handle : notProviders()) {
        EXPECT_TRUE(refused(CryptCreateHash(handle, streebog, 0, 0, &out_), badHandle));
    }
    for (const unsigned long handle : notHashes()) {
        EXPECT_TRUE(refused(CryptHashData(handle, &octet_, 1, 0), capi::NTE_BAD_HASH));
        EXPECT_TRUE(refused(CryptGetHashParam(handle, capi::HP_ALGID, nullptr, &size_, 0), capi::NTE_BAD_HASH));
        EXPECT_TRUE(refused(CryptDestroyHash(handle), capi::NTE_BAD_HASH));
    }
    EXPECT_TRUE(refused(CryptCreateHash(prov(), streebog, 0, 1, &out_), capi::NTE_BAD_FLAGS));
    EXPECT_TRUE(refused(CryptCreateHash(prov(), streebog, key_, 0, &out_), capi::NTE_BAD_KEY));
    EXPECT_TRUE(refused(CryptHashData(hash_, &octet_, 1, 1), capi::NTE_BAD_FLAGS));
    EXPECT_TRUE(CryptHashData(hash_, nullptr, 0, 0));
}

TEST_F(FailureOrder, Signatures) {
    BYTE signature[64]{};
    EXPECT_TRUE(refused(CryptSignHashW(hash_, 1, nullptr, 0, nullptr, nullptr), badArgument));
    EXPECT_TRUE(refused(CryptSignHashW(hash_, 1, "description", 0, nullptr, &size_), badArgument));
    EXPECT_TRUE(refused(CryptVerifySignatureW(hash_, nullptr, 64, key_, nullptr, 0), badArgument));
    EXPECT_TRUE(refused(CryptVerifySignatureW(hash_, signature, 64, key_, "description", 0), badArgument));
    for (const unsigned long handle : notHashes()) {
        EXPECT_TRUE(refused(CryptSignHashW(handle, 1, nullptr, 0, nullptr, &size_), capi::NTE_BAD_HASH));
        EXPECT_TRUE(refused(CryptVerifySignatureW(handle, signature, 64, key_, nullptr, 0), capi::NTE_BAD_HASH));
    }
    for (const unsigned long handle : notKeys()) {
        EXPECT_TRUE(refused(CryptVerifySignatureW(hash_, signature, 64, handle, nullptr, 0), capi::NTE_BAD_KEY));
    }
    EXPECT_TRUE(refused(CryptSignHashW(hash_, 1, nullptr, 1, nullptr, &size_), capi::NTE_BAD_FLAGS));
    EXPECT_TRUE(refused(CryptVerifySignatureW(hash_, signature, 64, key_, nullptr, 1), capi::NTE_BAD_FLAGS));
    EXPECT_TRUE(refused(CryptVerifySignatureW(hash_, signature, 64, key_, nullptr, 0), capi::NTE_BAD_SIGNATURE));
    size_ = sizeof signature;
    ASSERT_TRUE(CryptSignHashW(hash_, 1, nullptr, 0, signature, &size_));
    EXPECT_TRUE(CryptVerifySignatureW(hash_, signature, 64, key_, nullptr, 0));
}

} // namespace csp_keys
