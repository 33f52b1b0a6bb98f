// CRLs in a store's folder: added, replaced by newer ones, listed, deleted.

#include "chain_fixture.hpp"

#include "core/error.hpp"
#include "stores/crl_files.hpp"

namespace {

template <class Call>
DWORD codeOf(Call&& call) {
    try {
        call();
        return 0;
    } catch (const csp::ApiError& error) {
        return error.code();
    }
}

class CrlFiles : public ChainTest {
protected:
    [[nodiscard]] std::size_t count() const { return csp::listCrls(folder("ca")).size(); }
    const std::time_t now_ = std::time(nullptr);
};

TEST_F(CrlFiles, AreAddedAndRevokeAtOnce) {
    standardChain();
    const auto added = csp::addCrl(folder("ca"), pki::makeCrl(ca_, {.serials = {77, 78}, .thisUpdate = now_ - 50}));
    EXPECT_EQ(added.issuer, "CN=Intermediate");
    EXPECT_EQ(added.thisUpdate, now_ - 50);
    EXPECT_EQ(added.entries, 2U);
    EXPECT_FALSE(added.delta);
    EXPECT_TRUE(std::filesystem::exists(folder("ca") / added.file));
    EXPECT_EQ(status(leaf_.der, capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY), capi::CERT_TRUST_IS_REVOKED);
}

TEST_F(CrlFiles, AreReplacedByNewerOnesOnly) {
    const csp::Bytes newer =
        pki::makeCrl(ca_, {.thisUpdate = now_ - 50, .extensions = {{NID_crl_number, "DER:02:01:07"}}});
    const auto first = csp::addCrl(folder("ca"), pki::makeCrl(ca_, {.thisUpdate = now_ - 100}));
    const auto second = csp::addCrl(folder("ca"), newer);
    EXPECT_EQ(first.file, second.file);
    EXPECT_EQ(second.number, csp::Bytes{7});
    EXPECT_EQ(codeOf([&] { csp::addCrl(folder("ca"), newer); }), capi::CRYPT_E_EXISTS);
    EXPECT_EQ(codeOf([&] { csp::addCrl(folder("ca"), pki::makeCrl(ca_, {.thisUpdate = now_ - 70})); }),
              capi::CRYPT_E_EXISTS);
    EXPECT_EQ(count(), 1U);
}

TEST_F(CrlFiles, OfOtherIssuersAndScopesStandBeside) {
    csp::addCrl(folder("ca"), pki::crl(ca_, std::vector<long>{}));
    csp::addCrl(folder("ca"), pki::crl(root_, std::vector<long>{}));
    csp::addCrl(folder("ca"),
                pki::makeCrl(ca_, {.extensions = {{NID_issuing_distribution_point, "critical,onlyuser:TRUE"}}}));
    const auto delta =
        csp::addCrl(folder("ca"), pki::makeCrl(ca_, {.extensions = {{NID_delta_crl, "critical,DER:02:01:01"}}}));
    EXPECT_TRUE(delta.delta);
    EXPECT_EQ(count(), 4U);
}

TEST_F(CrlFiles, AreRefusedWhenTheyAreNotCrls) {
    EXPECT_EQ(codeOf([&] { csp::addCrl(folder("ca"), leaf_.der); }), capi::CRYPT_E_ASN1_CORRUPT);
    EXPECT_EQ(codeOf([&] { csp::addCrl(folder("ca"), {}); }), capi::CRYPT_E_ASN1_CORRUPT);
    const csp::Bytes huge(csp::largestCrl + 1, 0x30);
    EXPECT_EQ(codeOf([&] { csp::addCrl(folder("ca"), huge); }), capi::ERROR_INVALID_DATA);
    EXPECT_EQ(count(), 0U);
}

TEST_F(CrlFiles, AreDeletedByTheNameOfTheirFile) {
    const auto added = csp::addCrl(folder("ca"), pki::crl(ca_, std::vector<long>{}));
    EXPECT_EQ(codeOf([&] { csp::deleteCrl(folder("ca"), "../ca/" + added.file); }), capi::CRYPT_E_NOT_FOUND);
    csp::deleteCrl(folder("ca"), added.file);
    EXPECT_EQ(count(), 0U);
    EXPECT_EQ(codeOf([&] { csp::deleteCrl(folder("ca"), added.file); }), capi::CRYPT_E_NOT_FOUND);
}

} // namespace
