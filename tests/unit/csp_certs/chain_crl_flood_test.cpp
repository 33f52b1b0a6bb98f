// Certificates and CRLs that a message brings under the names of true issuers, to hide what a true CRL revokes.

#include "carried_store.hpp"
#include "chain_fixture.hpp"

namespace {

class ChainCrlFlood : public ChainTest {
protected:
    ChainCrlFlood() { standardChain(); }
    static constexpr DWORD atHand = capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY;
    static constexpr DWORD revoked = capi::CERT_TRUST_IS_REVOKED;
    static constexpr DWORD unknown =
        capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN | capi::CERT_TRUST_IS_OFFLINE_REVOCATION;

    /// CRLs under the intermediate's name, each newer than the one before, signed with a key of the forger's.
    std::vector<csp::Bytes> forgedLists(std::size_t count) const {
        std::vector<csp::Bytes> lists;
        for (std::size_t i = 0; i < count; ++i) {
            lists.push_back(pki::makeCrl(forger_, {.thisUpdate = now_ - 3000 + static_cast<std::time_t>(i)}));
        }
        return lists;
    }
    /// Certificates under the intermediate's name that the root did not sign.
    std::vector<csp::Bytes> forgedIssuers(std::size_t count) const {
        std::vector<csp::Bytes> issuers;
        for (std::size_t i = 0; i < count; ++i) {
            const Entity issuer = pki::make({.subject = "Intermediate", .serial = static_cast<long>(i)});
            issuers.push_back(issuer.der);
        }
        return issuers;
    }
    void bring(const std::vector<csp::Bytes>& certificates, const std::vector<csp::Bytes>& crls) {
        additional_.reset(openCarriedStore(certificates, crls));
        ASSERT_TRUE(additional_);
    }

    const std::time_t now_ = std::time(nullptr);
    const csp::Bytes true_ = pki::makeCrl(ca_, {.serials = {77}, .thisUpdate = now_ - 3600});
    const Entity forger_ = pki::root("Intermediate");
};

TEST_F(ChainCrlFlood, OfIssuersAndListsDoesNotHideATrueList) {
    addCrl(true_);
    bring(forgedIssuers(8), forgedLists(8));
    EXPECT_EQ(elementErrors(chainOf(leaf_.der, atHand)), (std::vector<DWORD>{revoked, 0, 0}));
}

TEST_F(ChainCrlFlood, DoesNotCrowdOutTheListsOfTheSystemStores) {
    addCrl(true_);
    bring({}, forgedLists(80));
    EXPECT_NE(status(leaf_.der, atHand) & revoked, 0U);
}

TEST_F(ChainCrlFlood, BeyondTheLimitOfListsIsNotTrusted) {
    std::vector<csp::Bytes> lists = forgedLists(64);
    bring({}, lists);
    EXPECT_EQ(status(leaf_.der, atHand), 0U) << "every list was looked at";
    lists.push_back(true_);
    bring({}, lists);
    const Chain chain = chainOf(leaf_.der, atHand);
    EXPECT_EQ(elementErrors(chain), (std::vector<DWORD>{unknown, 0, 0})) << "the root's own lists were looked at";
    EXPECT_EQ(status(leaf_.der), 0U) << "nobody asked about revocation";
}

TEST_F(ChainCrlFlood, BeyondTheLimitOfIssuersIsNotTrusted) {
    bring(forgedIssuers(9), forgedLists(1));
    EXPECT_EQ(status(leaf_.der, atHand), unknown);
    bring(forgedIssuers(8), forgedLists(1));
    EXPECT_EQ(status(leaf_.der, atHand), 0U);
}

TEST_F(ChainCrlFlood, BeyondTheLimitOfSignatureChecksIsNotTrusted) {
    // True certificates of the intermediate's name, from the root, none of which signed these lists.
    std::vector<csp::Bytes> issuers;
    for (long serial = 100; serial < 103; ++serial) {
        issuers.push_back(pki::intermediate("Intermediate", root_, serial).der);
    }
    bring(issuers, forgedLists(60));
    EXPECT_EQ(elementErrors(chainOf(leaf_.der, atHand)), (std::vector<DWORD>{unknown, 0, 0}));
    addCrl(pki::makeCrl(ca_, {.thisUpdate = now_ - 100}));
    const Chain chain = chainOf(leaf_.der, atHand);
    EXPECT_EQ(elementErrors(chain), (std::vector<DWORD>{unknown, 0, 0}));
    EXPECT_EQ(chain->rgpChain[0]->rgpElement[0]->pRevocationInfo->dwRevocationResult, capi::CRYPT_E_REVOCATION_OFFLINE)
        << "a list that was used is not called good news while others were not looked at";
}

} // namespace
