// CRLs in a store's folder: added, replaced by newer ones, listed, deleted.

#include "chain_fixture.hpp"

#include "chains/crl_signer.hpp"
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
    [[nodiscard]] std::size_t count() const { return csp::listCrls(folder("ca")).crls.size(); }
    /// Adds as the command does: with the key whose signature was verified, if a certificate of the stores has it.
    csp::CrlSummary store(const csp::Bytes& der) const {
        return csp::addCrl(folder("ca"), der, csp::crlSignerKey(der).value_or(csp::Bytes{}));
    }
    /// The status of the leaf by the CRLs at hand.
    DWORD byLists() { return status(leaf_.der, capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY); }
    const std::time_t now_ = std::time(nullptr);
};

TEST_F(CrlFiles, AreAddedAndRevokeAtOnce) {
    standardChain();
    const auto added = store(pki::makeCrl(ca_, {.serials = {77, 78}, .thisUpdate = now_ - 50}));
    EXPECT_EQ(added.issuer, "CN=Intermediate");
    EXPECT_EQ(added.thisUpdate, now_ - 50);
    EXPECT_EQ(added.entries, 2U);
    EXPECT_FALSE(added.delta);
    EXPECT_TRUE(std::filesystem::exists(folder("ca") / added.file));
    EXPECT_EQ(status(leaf_.der, capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY), capi::CERT_TRUST_IS_REVOKED);
}

TEST_F(CrlFiles, AreReplacedByNewerOnesOnly) {
    standardChain();
    const csp::Bytes newer =
        pki::makeCrl(ca_, {.thisUpdate = now_ - 50, .extensions = {{NID_crl_number, "DER:02:01:07"}}});
    const auto first = store(pki::makeCrl(ca_, {.thisUpdate = now_ - 100}));
    const auto second = store(newer);
    EXPECT_EQ(first.file, second.file);
    EXPECT_EQ(second.number, csp::Bytes{7});
    EXPECT_EQ(codeOf([&] { store(newer); }), capi::CRYPT_E_EXISTS);
    EXPECT_EQ(codeOf([&] { store(pki::makeCrl(ca_, {.thisUpdate = now_ - 70})); }), capi::CRYPT_E_EXISTS);
    EXPECT_EQ(count(), 1U);
}

TEST_F(CrlFiles, ThatAreForgedNeverReplaceTrueOnes) {
    standardChain();
    const auto held = store(pki::makeCrl(ca_, {.serials = {77}, .thisUpdate = now_ - 100}));
    const Entity forger = pki::root("Intermediate");
    const auto forged = store(pki::makeCrl(forger, {.thisUpdate = now_ - 10}));
    EXPECT_NE(forged.file, held.file);
    EXPECT_TRUE(forged.file.starts_with("unverified-")) << forged.file;
    EXPECT_EQ(byLists(), capi::CERT_TRUST_IS_REVOKED);
    know(forger); // now its key is that of a certificate in the stores, and still another one
    const auto known = store(pki::makeCrl(forger, {.thisUpdate = now_ - 9}));
    EXPECT_NE(known.file, held.file);
    EXPECT_EQ(byLists(), capi::CERT_TRUST_IS_REVOKED);
    csp::Bytes damaged = pki::makeCrl(ca_, {.thisUpdate = now_ - 8});
    damaged.back() ^= 1U;
    EXPECT_TRUE(store(damaged).file.starts_with("unverified-"));
    EXPECT_EQ(byLists(), capi::CERT_TRUST_IS_REVOKED);
    EXPECT_EQ(count(), 4U);
}

TEST_F(CrlFiles, ThatAreForgedDoNotKeepTrueOnesOut) {
    const csp::Bytes list = pki::makeCrl(ca_, {.serials = {77}, .thisUpdate = now_ - 100});
    store(pki::makeCrl(pki::root("Intermediate"), {.thisUpdate = now_ - 10}));
    EXPECT_TRUE(store(list).file.starts_with("unverified-")) << "its issuer is not known yet";
    EXPECT_EQ(codeOf([&] { store(list); }), capi::CRYPT_E_EXISTS);
    standardChain();
    EXPECT_FALSE(store(list).file.starts_with("unverified-"));
    EXPECT_EQ(count(), 2U) << "not twice";
    EXPECT_EQ(byLists(), capi::CERT_TRUST_IS_REVOKED);
}

TEST_F(CrlFiles, OfAnIssuerThatMayNotSignThemAreNotVerified) {
    const Entity limited = pki::make(
        {.subject = "Limited",
         .issuer = &root_,
         .serial = 9,
         .extensions = {{NID_basic_constraints, "critical,CA:TRUE"}, {NID_key_usage, "critical,keyCertSign"}}});
    know(limited);
    EXPECT_TRUE(store(pki::crl(limited, {77})).file.starts_with("unverified-"));
}

TEST_F(CrlFiles, OfOtherIssuersAndScopesStandBeside) {
    standardChain();
    store(pki::crl(ca_, std::vector<long>{}));
    store(pki::crl(root_, std::vector<long>{}));
    store(pki::makeCrl(ca_, {.extensions = {{NID_issuing_distribution_point, "critical,onlyuser:TRUE"}}}));
    const auto delta = store(pki::makeCrl(ca_, {.extensions = {{NID_delta_crl, "critical,DER:02:01:01"}}}));
    EXPECT_TRUE(delta.delta);
    EXPECT_EQ(count(), 4U);
}

TEST_F(CrlFiles, AreRefusedWhenTheyAreNotCrls) {
    EXPECT_EQ(codeOf([&] { store(leaf_.der); }), capi::CRYPT_E_ASN1_CORRUPT);
    EXPECT_EQ(codeOf([&] { store({}); }), capi::CRYPT_E_ASN1_CORRUPT);
    const csp::Bytes huge(csp::largestCrl + 1, 0x30);
    EXPECT_EQ(codeOf([&] { store(huge); }), capi::ERROR_INVALID_DATA);
    EXPECT_EQ(count(), 0U);
}

TEST_F(CrlFiles, AreDeletedByTheNameOfTheirFile) {
    const auto added = store(pki::crl(ca_, std::vector<long>{}));
    EXPECT_EQ(codeOf([&] { csp::deleteCrl(folder("ca"), "../ca/" + added.file); }), capi::CRYPT_E_NOT_FOUND);
    csp::deleteCrl(folder("ca"), added.file);
    EXPECT_EQ(count(), 0U);
    EXPECT_EQ(codeOf([&] { csp::deleteCrl(folder("ca"), added.file); }), capi::CRYPT_E_NOT_FOUND);
}

} // namespace
