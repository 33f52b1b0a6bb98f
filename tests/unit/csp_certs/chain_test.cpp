#include "chain_fixture.hpp"

#include "stores/context.hpp"

#include <algorithm>
#include <array>

namespace {

TEST_F(ChainTest, EndsInTheRootStore) {
    standardChain();
    const Chain chain = chainOf(leaf_.der);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, 0U);
    EXPECT_EQ(chain->cbSize, sizeof(CERT_CHAIN_CONTEXT));
    ASSERT_EQ(chain->cChain, 1U);
    const CERT_SIMPLE_CHAIN& simple = *chain->rgpChain[0];
    ASSERT_EQ(simple.cElement, 3U);
    const std::array<const Entity*, 3> expected{&leaf_, &ca_, &root_};
    for (DWORD i = 0; i < simple.cElement; ++i) {
        const PCCERT_CONTEXT context = simple.rgpElement[i]->pCertContext;
        EXPECT_EQ(csp::Bytes(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded),
                  expected[i]->der);
        EXPECT_EQ(simple.rgpElement[i]->pApplicationUsage, nullptr);
    }
    EXPECT_EQ(simple.rgpElement[0]->TrustStatus.dwInfoStatus, capi::CERT_TRUST_HAS_NAME_MATCH_ISSUER);
    EXPECT_EQ(simple.rgpElement[1]->TrustStatus.dwInfoStatus, capi::CERT_TRUST_HAS_KEY_MATCH_ISSUER);
    EXPECT_EQ(simple.rgpElement[2]->TrustStatus.dwInfoStatus, capi::CERT_TRUST_IS_SELF_SIGNED);
    EXPECT_EQ(policy(chain, 0), 0U);
}

TEST_F(ChainTest, GivesEveryContextBack) {
    standardChain();
    chainOf(leaf_.der).reset();
    EXPECT_EQ(csp::liveContexts(), 0U);
}

TEST_F(ChainTest, IsPartialWithoutAnIssuer) {
    trust(root_);
    const Chain chain = chainOf(leaf_.der);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, capi::CERT_TRUST_IS_PARTIAL_CHAIN);
    EXPECT_EQ(elementErrors(chain), std::vector<DWORD>{0});
    LONG element = 5;
    EXPECT_EQ(policy(chain, 0, &element), capi::CERT_E_CHAINING);
    EXPECT_EQ(element, -1);
    EXPECT_EQ(policy(chain, 0x10), 0U);
}

TEST_F(ChainTest, FindsIssuersInTheAdditionalStore) {
    trust(root_);
    additional_ = memoryStore();
    add(additional_.get(), ca_.der);
    EXPECT_EQ(status(leaf_.der), 0U);
}

TEST_F(ChainTest, TrustsNoRootOfTheAdditionalStore) {
    know(ca_);
    additional_ = memoryStore();
    add(additional_.get(), root_.der);
    const Chain chain = chainOf(leaf_.der);
    EXPECT_EQ(elementErrors(chain), (std::vector<DWORD>{0, 0, capi::CERT_TRUST_IS_UNTRUSTED_ROOT}));
    LONG element = 0;
    EXPECT_EQ(policy(chain, 0, &element), capi::CERT_E_UNTRUSTEDROOT);
    EXPECT_EQ(element, 2);
}

TEST_F(ChainTest, DoesNotTrustASelfSignedCertificateByItself) {
    const Entity alone = pki::make({.subject = "Alone"});
    EXPECT_EQ(status(alone.der), capi::CERT_TRUST_IS_UNTRUSTED_ROOT);
    trust(alone);
    EXPECT_EQ(status(alone.der), 0U);
}

TEST_F(ChainTest, JudgesTheTimeThatIsAskedAbout) {
    standardChain();
    const Entity past =
        pki::make({.subject = "Past", .issuer = &ca_, .serial = 5, .notAfter = std::time(nullptr) - 60});
    const Chain chain = chainOf(past.der);
    EXPECT_EQ(elementErrors(chain), (std::vector<DWORD>{capi::CERT_TRUST_IS_NOT_TIME_VALID, 0, 0}));
    EXPECT_EQ(policy(chain, 0), capi::CERT_E_EXPIRED);
    EXPECT_EQ(policy(chain, 0x1), 0U);
    time_ = std::time(nullptr) - 1800;
    EXPECT_EQ(status(past.der), 0U);
    time_ = std::time(nullptr) - 7200;
    EXPECT_EQ(elementErrors(chainOf(past.der)), std::vector<DWORD>(3, capi::CERT_TRUST_IS_NOT_TIME_VALID));
}

TEST_F(ChainTest, RefusesAChangedSignature) {
    standardChain();
    csp::Bytes changed = leaf_.der;
    changed.back() ^= 1U;
    const Chain chain = chainOf(changed);
    EXPECT_EQ(elementErrors(chain), (std::vector<DWORD>{capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID, 0, 0}));
    EXPECT_EQ(policy(chain, ~0U), capi::TRUST_E_CERT_SIGNATURE);
}

TEST_F(ChainTest, TellsEveryProblemAtOnce) {
    know(root_);
    know(ca_);
    const Entity bad = pki::make({.subject = "Bad", .issuer = &ca_, .serial = 5, .notAfter = std::time(nullptr) - 60});
    csp::Bytes changed = bad.der;
    changed.back() ^= 1U;
    const DWORD both = capi::CERT_TRUST_IS_NOT_TIME_VALID | capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID;
    EXPECT_EQ(elementErrors(chainOf(changed)), (std::vector<DWORD>{both, 0, capi::CERT_TRUST_IS_UNTRUSTED_ROOT}));
    EXPECT_EQ(status(changed), both | capi::CERT_TRUST_IS_UNTRUSTED_ROOT);
}

TEST_F(ChainTest, DistrustsWhatIsDisallowed) {
    standardChain();
    add(systemStore("disallowed").get(), ca_.der);
    const Chain chain = chainOf(leaf_.der);
    EXPECT_EQ(elementErrors(chain), (std::vector<DWORD>{0, capi::CERT_TRUST_IS_EXPLICIT_DISTRUST, 0}));
    EXPECT_EQ(policy(chain, 0), capi::TRUST_E_EXPLICIT_DISTRUST);
}

TEST_F(ChainTest, RefusesAnIssuerThatIsNoAuthority) {
    standardChain();
    know(leaf_);
    const Entity below = pki::make({.subject = "Below", .issuer = &leaf_, .serial = 5});
    const Entity person = pki::make(
        {.subject = "Person", .issuer = &ca_, .serial = 6, .extensions = {{NID_basic_constraints, "CA:FALSE"}}});
    know(person);
    const Entity under = pki::make({.subject = "Under", .issuer = &person, .serial = 7});
    EXPECT_EQ(elementErrors(chainOf(under.der)),
              (std::vector<DWORD>{0, capi::CERT_TRUST_INVALID_BASIC_CONSTRAINTS, 0, 0}));
    EXPECT_EQ(elementErrors(chainOf(below.der)),
              (std::vector<DWORD>{0, capi::CERT_TRUST_INVALID_BASIC_CONSTRAINTS, 0, 0}));
}

TEST_F(ChainTest, RefusesACriticalExtensionThatNobodyKnows) {
    standardChain();
    const int unknown = OBJ_create("1.2.3.4.5", "unknownTest", "unknown test extension");
    const csp::ossl::Pkey key = pki::newKey(pki::KeyKind::Ec);
    X509* const draft = X509_dup(leaf_.certificate.get());
    ASN1_OCTET_STRING* const value = ASN1_OCTET_STRING_new();
    ASN1_OCTET_STRING_set(value, reinterpret_cast<const unsigned char*>("\x05\x00"), 2);
    X509_EXTENSION* const extension = X509_EXTENSION_create_by_NID(nullptr, unknown, 1, value);
    X509_add_ext(draft, extension, -1);
    X509_sign(draft, ca_.key.get(), EVP_sha256());
    unsigned char* out = nullptr;
    const int size = i2d_X509(draft, &out);
    EXPECT_EQ(status({out, out + size}), capi::CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT);
    OPENSSL_free(out);
    X509_EXTENSION_free(extension);
    ASN1_OCTET_STRING_free(value);
    X509_free(draft);
}

TEST_F(ChainTest, IsNotTrustedForAKeyThatCannotBeDecoded) {
    standardChain();
    csp::Bytes odd = leaf_.der;
    const csp::Bytes ecPublicKey{0x06, 0x07, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01};
    const auto at = std::search(odd.begin(), odd.end(), ecPublicKey.begin(), ecPublicKey.end());
    ASSERT_NE(at, odd.end());
    at[8] = 0x7F;
    EXPECT_EQ(status(odd), capi::CERT_TRUST_IS_PARTIAL_CHAIN | capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID);
}

TEST_F(ChainTest, ProcessesPolicies) {
    trust(root_);
    const Entity demanding = pki::make({.subject = "Demanding",
                                        .issuer = &root_,
                                        .serial = 9,
                                        .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                                       {NID_certificate_policies, "1.2.3.4"},
                                                       {NID_policy_constraints, "critical,requireExplicitPolicy:0"}}});
    know(demanding);
    const auto with = [&](const std::string& policy) {
        return pki::make({.subject = "x",
                          .issuer = &demanding,
                          .serial = 5,
                          .extensions = {{NID_certificate_policies, policy}}})
            .der;
    };
    EXPECT_EQ(status(with("1.2.3.4")), 0U);
    EXPECT_EQ(status(with("1.2.3.5")), capi::CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY);
}

TEST_F(ChainTest, KeepsToNameConstraints) {
    trust(root_);
    const Entity limited = pki::make({.subject = "Limited",
                                      .issuer = &root_,
                                      .serial = 9,
                                      .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                                     {NID_name_constraints, "critical,permitted;DNS:example.org"}}});
    know(limited);
    const auto named = [&](const std::string& dns) {
        return pki::make({.subject = "x",
                          .issuer = &limited,
                          .serial = 5,
                          .extensions = {{NID_subject_alt_name, "DNS:" + dns}}})
            .der;
    };
    EXPECT_EQ(status(named("www.example.org")), 0U);
    EXPECT_EQ(status(named("www.example.com")), capi::CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT);
}

class ChainUsage : public ChainTest {
protected:
    ChainUsage() {
        trust(root_);
        know(limited_);
        pointers_ = {email_.data(), client_.data()};
    }
    DWORD usage(DWORD type, DWORD count) {
        usage_ = {type, {count, pointers_.data()}};
        return status(mail_.der);
    }

    std::string email_ = "1.3.6.1.5.5.7.3.4";
    std::string client_ = "1.3.6.1.5.5.7.3.2";
    std::vector<char*> pointers_;
    Entity limited_ = pki::make({.subject = "Limited",
                                 .issuer = &root_,
                                 .serial = 9,
                                 .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                                {NID_ext_key_usage, "emailProtection,timeStamping"}}});
    Entity mail_ = pki::make({.subject = "Mail",
                              .issuer = &limited_,
                              .serial = 5,
                              .extensions = {{NID_ext_key_usage, "emailProtection,clientAuth"}}});
};

TEST_F(ChainUsage, IsNotJudgedUnlessAskedFor) {
    EXPECT_EQ(usage(capi::USAGE_MATCH_TYPE_AND, 0), 0U);
}

TEST_F(ChainUsage, HoldsWhenEveryCertificateAllowsIt) {
    EXPECT_EQ(usage(capi::USAGE_MATCH_TYPE_AND, 1), 0U);
}

TEST_F(ChainUsage, IsLimitedByTheIssuers) {
    EXPECT_EQ(usage(capi::USAGE_MATCH_TYPE_AND, 2), capi::CERT_TRUST_IS_NOT_VALID_FOR_USAGE);
    EXPECT_EQ(usage(capi::USAGE_MATCH_TYPE_OR, 2), 0U);
    pointers_ = {client_.data()};
    EXPECT_EQ(usage(capi::USAGE_MATCH_TYPE_OR, 1), capi::CERT_TRUST_IS_NOT_VALID_FOR_USAGE);
}

TEST_F(ChainUsage, TellsWhatIsLeftOfIt) {
    const Chain chain = chainOf(mail_.der);
    const CERT_ENHKEY_USAGE* const left = chain->rgpChain[0]->rgpElement[0]->pApplicationUsage;
    ASSERT_NE(left, nullptr);
    ASSERT_EQ(left->cUsageIdentifier, 1U);
    EXPECT_EQ(left->rgpszUsageIdentifier[0], email_);
    EXPECT_EQ(chain->rgpChain[0]->rgpElement[2]->pApplicationUsage, nullptr);
}

class ChainRevocation : public ChainTest {
protected:
    ChainRevocation() { standardChain(); }
    static constexpr DWORD end = capi::CERT_CHAIN_REVOCATION_CHECK_END_CERT;
    static constexpr DWORD all = capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN;
    static constexpr DWORD withoutRoot = capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN_EXCLUDE_ROOT;
    static constexpr DWORD unknown =
        capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN | capi::CERT_TRUST_IS_OFFLINE_REVOCATION;
    static constexpr DWORD atHand =
        capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY | capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL;
};

TEST_F(ChainRevocation, IsReadFromTheListsAtHandByTheCacheFlagAlone) {
    EXPECT_EQ(status(leaf_.der, atHand), 0U) << "a missing list is not an error";
    revoke(ca_, {77});
    EXPECT_EQ(status(leaf_.der, 0), 0U) << "nobody asked";
    EXPECT_EQ(status(leaf_.der, capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL), 0U);
    EXPECT_EQ(elementErrors(chainOf(leaf_.der, atHand)), (std::vector<DWORD>{capi::CERT_TRUST_IS_REVOKED, 0, 0}));
}

TEST_F(ChainRevocation, IsUnknownWithoutAList) {
    EXPECT_EQ(elementErrors(chainOf(leaf_.der, end)), (std::vector<DWORD>{unknown, 0, 0}));
    EXPECT_EQ(elementErrors(chainOf(leaf_.der, all)), (std::vector<DWORD>{unknown, unknown, unknown}));
    const Chain chain = chainOf(leaf_.der, withoutRoot);
    EXPECT_EQ(elementErrors(chain), (std::vector<DWORD>{unknown, unknown, 0}));
    EXPECT_EQ(policy(chain, 0), capi::CRYPT_E_NO_REVOCATION_CHECK);
    EXPECT_EQ(policy(chain, 0x100), capi::CRYPT_E_NO_REVOCATION_CHECK);
    EXPECT_EQ(policy(chain, 0x500), 0U);
}

TEST_F(ChainRevocation, IsKnownFromTheListsOfTheStores) {
    revoke(ca_, {1, 2, 3});
    revoke(root_, {});
    EXPECT_EQ(status(leaf_.der, withoutRoot), 0U);
    EXPECT_EQ(status(leaf_.der, all), 0U);
}

TEST_F(ChainRevocation, TellsWhichCertificateWasTakenBack) {
    revoke(ca_, {77});
    revoke(root_, {});
    const Chain leafRevoked = chainOf(leaf_.der, withoutRoot);
    EXPECT_EQ(elementErrors(leafRevoked), (std::vector<DWORD>{capi::CERT_TRUST_IS_REVOKED, 0, 0}));
    EXPECT_EQ(policy(leafRevoked, 0), capi::CRYPT_E_REVOKED);
}

TEST_F(ChainRevocation, ReachesTheIssuers) {
    revoke(ca_, {});
    revoke(root_, {2});
    EXPECT_EQ(elementErrors(chainOf(leaf_.der, withoutRoot)), (std::vector<DWORD>{0, capi::CERT_TRUST_IS_REVOKED, 0}));
    EXPECT_EQ(status(leaf_.der, end), 0U);
}

TEST_F(ChainRevocation, BelievesNoListWithAWrongSignature) {
    csp::Bytes list = pki::crl(ca_, {77});
    list.back() ^= 1U;
    write(folder("ca") / "forged.crl", view(list));
    EXPECT_EQ(elementErrors(chainOf(leaf_.der, end)), (std::vector<DWORD>{unknown, 0, 0}));
}

TEST_F(ChainRevocation, ReadsListsAsPemAndPassesOverJunk) {
    write(folder("ca") / "junk.crl", "no list");
    const auto list = pki::crl(ca_, {77});
    csp::Bytes base64(list.size() * 2);
    const int size = EVP_EncodeBlock(base64.data(), list.data(), static_cast<int>(list.size()));
    write(folder("ca") / "list.crl", "-----BEGIN X509 CRL-----\n" + std::string(base64.begin(), base64.begin() + size) +
                                         "\n-----END X509 CRL-----\n");
    EXPECT_EQ(status(leaf_.der, end), capi::CERT_TRUST_IS_REVOKED);
}

class GostChain : public ChainTest, public testing::WithParamInterface<pki::KeyKind> {};
INSTANTIATE_TEST_SUITE_P(Kinds, GostChain, testing::Values(pki::KeyKind::Gost256, pki::KeyKind::Gost512));

TEST_P(GostChain, IsCheckedWithItsOwnAlgorithms) {
    const Entity& gostRoot = rootOf(GetParam());
    const Entity person = pki::make({.subject = "Подписант", .issuer = &gostRoot, .kind = GetParam(), .serial = 5});
    trust(gostRoot);
    EXPECT_EQ(status(person.der), 0U);
    csp::Bytes changed = person.der;
    changed.back() ^= 1U;
    EXPECT_EQ(status(changed), capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID);
}

TEST_P(GostChain, TakesNoSignatureWithAnOctetBehindIt) {
    const Entity& gostRoot = rootOf(GetParam());
    trust(gostRoot);
    const Entity person = pki::make({.subject = "x", .issuer = &gostRoot, .serial = 5});
    const csp::ossl::X509Ptr longer = pki::decode(person.der);
    const ASN1_BIT_STRING* signature = nullptr;
    X509_get0_signature(&signature, nullptr, longer.get());
    csp::Bytes value(signature->data, signature->data + signature->length);
    value.push_back(0);
    ASN1_BIT_STRING_set(const_cast<ASN1_BIT_STRING*>(signature), value.data(), static_cast<int>(value.size()));
    unsigned char* out = nullptr;
    const int size = i2d_X509(longer.get(), &out);
    EXPECT_EQ(status({out, out + size}), capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID);
    OPENSSL_free(out);
}

TEST_F(ChainTest, RefusesWhatIsNoQuestion) {
    const Context certificate = contextOf(leaf_.der);
    CERT_CHAIN_PARA parameters{};
    parameters.cbSize = sizeof parameters;
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    const auto ask = [&](void* engine, PCCERT_CONTEXT context, void* store, CERT_CHAIN_PARA* para,
                         PCCERT_CHAIN_CONTEXT* result) {
        api::SetLastError(0);
        EXPECT_FALSE(api::CertGetCertificateChain(engine, context, nullptr, store, para, 0, nullptr, result));
        return api::GetLastError();
    };
    EXPECT_EQ(ask(nullptr, nullptr, nullptr, &parameters, &chain), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(ask(nullptr, certificate.get(), nullptr, nullptr, &chain), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(ask(nullptr, certificate.get(), nullptr, &parameters, nullptr), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(ask(&chain, certificate.get(), nullptr, &parameters, &chain), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(ask(nullptr, certificate.get(), &chain, &parameters, &chain), capi::ERROR_INVALID_HANDLE);
    parameters.RequestedUsage.Usage.cUsageIdentifier = 1;
    EXPECT_EQ(ask(nullptr, certificate.get(), nullptr, &parameters, &chain), capi::ERROR_INVALID_PARAMETER);
    EXPECT_EQ(chain, nullptr);
}

TEST_F(ChainTest, RefusesAPolicyOnStaleForeignAndNullChains) {
    standardChain();
    Chain chain = chainOf(leaf_.der);
    const PCCERT_CHAIN_CONTEXT stale = chain.get();
    CERT_CHAIN_POLICY_STATUS verdict{};
    EXPECT_FALSE(api::CertVerifyCertificateChainPolicy(storeProvider(99), stale, nullptr, &verdict));
    EXPECT_EQ(api::GetLastError(), capi::ERROR_FILE_NOT_FOUND);
    chain.reset();
    const CERT_CHAIN_CONTEXT foreign{};
    for (const PCCERT_CHAIN_CONTEXT bad : {stale, &foreign, PCCERT_CHAIN_CONTEXT{}}) {
        EXPECT_FALSE(api::CertVerifyCertificateChainPolicy(storeProvider(1), bad, nullptr, &verdict));
        EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER);
        api::CertFreeCertificateChain(bad);
    }
}

} // namespace
