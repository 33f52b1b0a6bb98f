// Chains over stores in memory, and the base policy.

#include "samples.hpp"

namespace conformance {

namespace {

using namespace capi;

class ChainOf : public ConformanceTest {
protected:
    static Store storeOf(std::initializer_list<const Bytes*> ders) {
        Store store(api().CertOpenStore(numbered(CERT_STORE_PROV_MEMORY), 0, 0, 0, nullptr));
        must(store.get() != nullptr, "opening a store in memory");
        for (const Bytes* der : ders) {
            const Certificate source = samples::contextOf(*der);
            must(api().CertAddCertificateContextToStore(store.get(), source.get(), CERT_STORE_ADD_ALWAYS, nullptr) != 0,
                 "adding a certificate");
        }
        return store;
    }
    static Chain build(const Certificate& certificate, const Store& store, FILETIME time = samples::moment,
                       CERT_USAGE_MATCH usage = {}) {
        CERT_CHAIN_PARA para{sizeof para, usage};
        Chain chain;
        must(api().CertGetCertificateChain(nullptr, certificate.get(), &time, store.get(), &para, offline, nullptr,
                                           chain.address()) != 0,
             "building a chain");
        return chain;
    }
    static DWORD policyError(const Chain& chain) {
        CERT_CHAIN_POLICY_PARA para{sizeof para, 0, nullptr};
        CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, nullptr};
        must(api().CertVerifyCertificateChainPolicy(numbered(CERT_CHAIN_POLICY_BASE), chain.get(), &para, &status) != 0,
             "judging a chain");
        return status.dwError;
    }
    static DWORD errors(const Chain& chain) { return chain.get()->TrustStatus.dwErrorStatus; }

    static constexpr DWORD offline = CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL;
    Certificate leaf_ = samples::contextOf(samples::leaf());
};

constexpr FILETIME year2015{0xE2B98000, 0x01D02555};

} // namespace

TEST_F(ChainOf, RefusesBadArguments) {
    CERT_CHAIN_PARA para{sizeof para, {}};
    PCCERT_CHAIN_CONTEXT chain = nullptr;
    EXPECT_REFUSED(api().CertGetCertificateChain(nullptr, nullptr, nullptr, nullptr, &para, offline, nullptr, &chain),
                   BAD_ARGUMENT);
    EXPECT_REFUSED(
        api().CertGetCertificateChain(nullptr, leaf_.get(), nullptr, nullptr, nullptr, offline, nullptr, &chain),
        BAD_ARGUMENT);
    EXPECT_REFUSED(
        api().CertGetCertificateChain(nullptr, leaf_.get(), nullptr, nullptr, &para, offline, nullptr, nullptr),
        BAD_ARGUMENT);
    para.cbSize = 4;
    EXPECT_REFUSED(
        api().CertGetCertificateChain(nullptr, leaf_.get(), nullptr, nullptr, &para, offline, nullptr, &chain),
        BAD_ARGUMENT);
    EXPECT_EQ(chain, nullptr);
}

TEST_F(ChainOf, ReachesTheRootThroughTheStore) {
    const Store store = storeOf({&samples::root(), &samples::intermediate()});
    const Chain chain = build(leaf_, store);
    ASSERT_EQ(chain.get()->cChain, 1U);
    const CERT_SIMPLE_CHAIN& simple = *chain.get()->rgpChain[0];
    ASSERT_EQ(simple.cElement, 3U);
    const Bytes* const expected[] = {&samples::leaf(), &samples::intermediate(), &samples::root()};
    for (DWORD i = 0; i < simple.cElement; ++i) {
        const CERT_CONTEXT& context = *simple.rgpElement[i]->pCertContext;
        EXPECT_EQ(Bytes(context.pbCertEncoded, context.pbCertEncoded + context.cbCertEncoded), *expected[i]) << i;
    }
    EXPECT_NE(simple.rgpElement[2]->TrustStatus.dwInfoStatus & CERT_TRUST_IS_SELF_SIGNED, 0U);
}

TEST_F(ChainOf, TellsARootThatIsNotTrusted) {
    const Store store = storeOf({&samples::root(), &samples::intermediate()});
    const Chain chain = build(leaf_, store);
    EXPECT_EQ(errors(chain), CERT_TRUST_IS_UNTRUSTED_ROOT);
    const CERT_SIMPLE_CHAIN& simple = *chain.get()->rgpChain[0];
    EXPECT_EQ(simple.rgpElement[0]->TrustStatus.dwErrorStatus, CERT_TRUST_NO_ERROR);
    EXPECT_EQ(simple.rgpElement[2]->TrustStatus.dwErrorStatus, CERT_TRUST_IS_UNTRUSTED_ROOT);
    EXPECT_EQ(policyError(chain), CERT_E_UNTRUSTEDROOT);
}

TEST_F(ChainOf, TellsAMissingIssuer) {
    const Chain chain = build(leaf_, storeOf({&samples::root()}));
    EXPECT_NE(errors(chain) & CERT_TRUST_IS_PARTIAL_CHAIN, 0U);
    EXPECT_EQ(chain.get()->rgpChain[0]->cElement, 1U);
    EXPECT_EQ(policyError(chain), CERT_E_CHAINING);
}

TEST_F(ChainOf, TellsACertificateOutOfItsTime) {
    const Store store = storeOf({&samples::root(), &samples::intermediate()});
    const Chain chain = build(leaf_, store, year2015);
    EXPECT_NE(errors(chain) & CERT_TRUST_IS_NOT_TIME_VALID, 0U);
}

TEST_F(ChainOf, TellsAUsageThatIsNotGranted) {
    std::string granted = "1.3.6.1.5.5.7.3.4";
    std::string other = "1.3.6.1.5.5.7.3.3";
    char* oids[] = {granted.data()};
    const Store store = storeOf({&samples::root(), &samples::intermediate()});
    const CERT_USAGE_MATCH usage{USAGE_MATCH_TYPE_AND, {1, oids}};
    EXPECT_EQ(errors(build(leaf_, store, samples::moment, usage)) & CERT_TRUST_IS_NOT_VALID_FOR_USAGE, 0U);
    oids[0] = other.data();
    EXPECT_NE(errors(build(leaf_, store, samples::moment, usage)) & CERT_TRUST_IS_NOT_VALID_FOR_USAGE, 0U);
}

TEST_F(ChainOf, TellsAForgedSignature) {
    Bytes forged = samples::leaf();
    forged.back() ^= 1U;
    const Certificate certificate = samples::contextOf(forged);
    const Store store = storeOf({&samples::root(), &samples::intermediate()});
    const Chain chain = build(certificate, store);
    EXPECT_NE(errors(chain) & CERT_TRUST_IS_NOT_SIGNATURE_VALID, 0U);
    EXPECT_EQ(policyError(chain), TRUST_E_CERT_SIGNATURE);
}

TEST_F(ChainOf, ASelfSignedCertificateIsOneElement) {
    const Certificate root = samples::contextOf(samples::root());
    const Chain chain = build(root, storeOf({}));
    EXPECT_EQ(chain.get()->rgpChain[0]->cElement, 1U);
    EXPECT_EQ(errors(chain), CERT_TRUST_IS_UNTRUSTED_ROOT);
}

TEST_F(ChainOf, PolicyRefusesBadArguments) {
    const Chain chain = build(leaf_, storeOf({}));
    CERT_CHAIN_POLICY_PARA para{sizeof para, 0, nullptr};
    CERT_CHAIN_POLICY_STATUS status{sizeof status, 0, 0, 0, nullptr};
    EXPECT_REFUSED(api().CertVerifyCertificateChainPolicy(numbered(9999), chain.get(), &para, &status),
                   ERROR_FILE_NOT_FOUND);
    EXPECT_REFUSED(api().CertVerifyCertificateChainPolicy(numbered(CERT_CHAIN_POLICY_BASE), nullptr, &para, &status),
                   BAD_ARGUMENT);
    EXPECT_REFUSED(
        api().CertVerifyCertificateChainPolicy(numbered(CERT_CHAIN_POLICY_BASE), chain.get(), &para, nullptr),
        BAD_ARGUMENT);
}

TEST_F(ChainOf, IsFreedWithoutOneToFree) {
    api().SetLastError(0);
    api().CertFreeCertificateChain(nullptr);
    EXPECT_EQ(api().GetLastError(), 0U);
}

TEST_F(ChainOf, HoldsItsCertificates) {
    const Chain chain = build(leaf_, storeOf({&samples::root(), &samples::intermediate()}));
    leaf_ = Certificate();
    const CERT_CONTEXT& first = *chain.get()->rgpChain[0]->rgpElement[0]->pCertContext;
    EXPECT_EQ(Bytes(first.pbCertEncoded, first.pbCertEncoded + first.cbCertEncoded), samples::leaf());
}

} // namespace conformance
