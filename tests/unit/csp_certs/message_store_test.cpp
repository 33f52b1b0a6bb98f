#include "service.hpp"

#include <gmock/gmock.h>

namespace {

/// A message that carries certificates and a CRL and has no signer, as OpenSSL writes it.
csp::Bytes carrier(const std::vector<const pki::Entity*>& certificates, const csp::Bytes& crl) {
    PKCS7* const message = PKCS7_new();
    PKCS7_set_type(message, NID_pkcs7_signed);
    PKCS7_content_new(message, NID_pkcs7_data);
    PKCS7_set_detached(message, 1);
    for (const pki::Entity* entity : certificates) {
        PKCS7_add_certificate(message, entity->certificate.get());
    }
    const unsigned char* position = crl.data();
    const csp::ossl::X509CrlPtr list(d2i_X509_CRL(nullptr, &position, static_cast<long>(crl.size())));
    PKCS7_add_crl(message, list.get());
    unsigned char* out = nullptr;
    const int size = i2d_PKCS7(message, &out);
    csp::Bytes der(out, out + size);
    OPENSSL_free(out);
    PKCS7_free(message);
    return der;
}

class MessageStore : public ServiceTest {
protected:
    MessageStore() {
        const csp::Bytes der = carrier({&leaf_, &root_}, pki::crl(root_, {77}));
        message_ = api::CryptMsgOpenToDecode(encodings, 0, 0, 0, nullptr, nullptr);
        EXPECT_TRUE(api::CryptMsgUpdate(message_, der.data(), static_cast<DWORD>(der.size()), 1))
            << std::hex << api::GetLastError();
        store_.reset(api::CertOpenStore(storeProvider(capi::CERT_STORE_PROV_MSG), encodings, 0, 0, message_));
    }
    ~MessageStore() override { api::CryptMsgClose(message_); }

    pki::Entity root_ = pki::root("Root");
    pki::Entity leaf_ = pki::make({.subject = "Leaf", .issuer = &root_, .serial = 77});
    void* message_ = nullptr;
    StoreHandle store_;
};

TEST_F(MessageStore, HoldsTheCertificatesOfTheMessage) {
    ASSERT_NE(store_, nullptr) << std::hex << api::GetLastError();
    EXPECT_THAT(walk(store_.get()), testing::UnorderedElementsAre(leaf_.der, root_.der));
    const auto id = contextOf(leaf_.der);
    const Context found(api::CertGetSubjectCertificateFromStore(store_.get(), encodings, id->pCertInfo));
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->cbCertEncoded, leaf_.der.size());
}

TEST_F(MessageStore, OutlivesTheMessage) {
    api::CryptMsgClose(std::exchange(message_, nullptr));
    EXPECT_EQ(walk(store_.get()).size(), 2U);
}

TEST_F(MessageStore, GivesItsListsToAChain) {
    add(systemStore("root").get(), root_.der);
    const auto certificate = contextOf(leaf_.der);
    CERT_CHAIN_PARA parameters{};
    parameters.cbSize = sizeof parameters;
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    ASSERT_TRUE(api::CertGetCertificateChain(nullptr, certificate.get(), nullptr, store_.get(), &parameters,
                                             capi::CERT_CHAIN_REVOCATION_CHECK_END_CERT, nullptr, &chain));
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, capi::CERT_TRUST_IS_REVOKED);
    api::CertFreeCertificateChain(chain);
}

TEST_F(MessageStore, IsRefusedWithoutAMessage) {
    EXPECT_EQ(api::CertOpenStore(storeProvider(capi::CERT_STORE_PROV_MSG), encodings, 0, 0, nullptr), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_HANDLE);
}

} // namespace
