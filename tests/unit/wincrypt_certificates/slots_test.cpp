// Where each operation of certificates, their verifier, the stores and the request creator stands in the table of
// virtual functions.
#include "unit/wincrypt_keys/slots.hpp"

#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/certificate_store.hpp"
#include "crypto/wincrypt/certificate_verifier.hpp"
#include "crypto/wincrypt/csr_creator.hpp"

#include <type_traits>
#include <utility>

namespace wincrypt_certificates {
namespace {

using orvik::plugin::wincrypt::Certificate;
using orvik::plugin::wincrypt::CertificateVerifier;
using orvik::plugin::wincrypt::CsrCreator;
using orvik::plugin::wincrypt::ProviderCertificateStore;
using orvik::plugin::wincrypt::RegistryCertificateStore;
using wincrypt_keys::inOrder;
using wincrypt_keys::slot;

TEST(CertificateSlots, OfACertificate) {
    inOrder(&Certificate::asWincrypt, &Certificate::asCryptoki, &Certificate::asSsl, &Certificate::privateKey,
            &Certificate::publicKey, &Certificate::provider, &Certificate::container, &Certificate::version,
            &Certificate::raw, &Certificate::issuer, &Certificate::subject, &Certificate::serialNumber,
            &Certificate::hashAlgorithm, &Certificate::signatureAlgorithm, &Certificate::friendlyName,
            &Certificate::issuerNameInfo, &Certificate::subjectNameInfo, &Certificate::notBefore,
            &Certificate::notAfter, &Certificate::keyUsage, &Certificate::subjectSignTool, &Certificate::issuerSignTool,
            &Certificate::privateKeyNotBefore, &Certificate::privateKeyNotAfter, &Certificate::enhancedKeyUsage,
            &Certificate::thumbprint, &Certificate::install, &Certificate::setFriendlyName, &Certificate::chain,
            &Certificate::context);
}

TEST(CertificateSlots, OfAVerifier) {
    inOrder(&CertificateVerifier::initCA, &CertificateVerifier::validateChain, &CertificateVerifier::status,
            &CertificateVerifier::statusString);
}

TEST(CertificateSlots, OfASystemStore) {
    using Store = RegistryCertificateStore;
    inOrder(&Store::certificates, &Store::findCertificate, &Store::addCertificate, &Store::deleteCertificate,
            &Store::name, &Store::type, &Store::handle);
}

/// The class in which a member that is called through `Class` is declared.
template <class Class, class Result, class... Arguments>
Class* declaredIn(Result (Class::*)(Arguments...) const);
template <class Class, class Result, class... Arguments>
Class* declaredIn(Result (Class::*)(Arguments...));

template <class Class, class Member>
constexpr bool declares(Member /*member*/) {
    return std::is_same_v<decltype(declaredIn(std::declval<Member>())), Class*>;
}

TEST(CertificateSlots, OfAProviderStore) {
    using Store = ProviderCertificateStore;
    inOrder(&Store::certificates, &Store::findCertificate, &Store::addCertificate, &Store::deleteCertificate,
            &Store::name, &Store::type, &Store::handle);
    EXPECT_TRUE(declares<Store>(&Store::addCertificate));
    EXPECT_TRUE(declares<Store>(&Store::deleteCertificate));
    EXPECT_TRUE(declares<Store>(&Store::handle));
    EXPECT_TRUE(declares<RegistryCertificateStore>(&Store::certificates));
    EXPECT_TRUE(declares<RegistryCertificateStore>(&Store::findCertificate));
    EXPECT_TRUE(declares<RegistryCertificateStore>(&Store::name));
    EXPECT_TRUE(declares<RegistryCertificateStore>(&Store::type));
}

TEST(CertificateSlots, OfARequestCreatorBeginWithItsOnlyOperation) {
    EXPECT_EQ(slot(&CsrCreator::create), 0U) << "the destructors come after it";
}

} // namespace
} // namespace wincrypt_certificates
