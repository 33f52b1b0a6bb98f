// CRLs of every kind, at any time: what revokes, what says nothing, what is reported of it.

#include "carried_store.hpp"
#include "chain_fixture.hpp"
#include "distribution_points.hpp"

namespace {

class ChainCrls : public ChainTest {
protected:
    ChainCrls() { standardChain(); }
    static constexpr DWORD end = capi::CERT_CHAIN_REVOCATION_CHECK_END_CERT;
    static constexpr DWORD atHand = capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY;
    static constexpr DWORD revoked = capi::CERT_TRUST_IS_REVOKED;
    static constexpr DWORD unknown =
        capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN | capi::CERT_TRUST_IS_OFFLINE_REVOCATION;

    static const CERT_REVOCATION_INFO* revocation(const Chain& chain, DWORD index = 0) {
        return chain->rgpChain[0]->rgpElement[index]->pRevocationInfo;
    }
    const std::time_t now_ = std::time(nullptr);
};

TEST_F(ChainCrls, TellOfARevokedCertificateSinceWhen) {
    addCrl(pki::makeCrl(
        ca_, {.serials = {77}, .revoked = now_ - 120, .entryExtensions = {{NID_crl_reason, "DER:0A:01:01"}}}));
    const Chain chain = chainOf(leaf_.der, atHand);
    EXPECT_EQ(elementErrors(chain), (std::vector<DWORD>{revoked, 0, 0}));
    const CERT_REVOCATION_INFO* const info = revocation(chain);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->cbSize, sizeof *info);
    EXPECT_EQ(info->dwRevocationResult, capi::CRYPT_E_REVOKED);
    ASSERT_NE(info->pCrlInfo, nullptr);
    ASSERT_NE(info->pCrlInfo->pCrlEntry, nullptr);
    const CRL_ENTRY& entry = *info->pCrlInfo->pCrlEntry;
    EXPECT_EQ(csp::fromFileTime(entry.RevocationDate), now_ - 120);
    ASSERT_EQ(entry.SerialNumber.cbData, 1U);
    EXPECT_EQ(entry.SerialNumber.pbData[0], 77);
    ASSERT_EQ(entry.cExtension, 1U);
    EXPECT_STREQ(entry.rgExtension[0].pszObjId, "2.5.29.21");
    EXPECT_EQ(revocation(chain, 1), nullptr) << "no list of the root's";
    EXPECT_EQ(revocation(chain, 2), nullptr);
}

TEST_F(ChainCrls, TellOfAGoodCertificateByWhichList) {
    const csp::Bytes list = pki::makeCrl(ca_, {.serials = {1}, .thisUpdate = now_ - 500});
    addCrl(list);
    time_ = now_;
    const Chain chain = chainOf(leaf_.der, atHand);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, 0U);
    const CERT_REVOCATION_INFO* const info = revocation(chain);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->dwRevocationResult, 0U);
    EXPECT_EQ(info->dwFreshnessTime, 500U);
    EXPECT_EQ(info->pCrlInfo->pCrlEntry, nullptr);
    EXPECT_EQ(info->pCrlInfo->pDeltaCrlContext, nullptr);
    const CRL_CONTEXT& base = *info->pCrlInfo->pBaseCrlContext;
    EXPECT_EQ(csp::Bytes(base.pbCrlEncoded, base.pbCrlEncoded + base.cbCrlEncoded), list);
    EXPECT_EQ(csp::fromFileTime(base.pCrlInfo->ThisUpdate), now_ - 500);
    EXPECT_EQ(base.pCrlInfo->cCRLEntry, 0U) << "there may be millions";
    EXPECT_EQ(csp::Bytes(base.pCrlInfo->Issuer.pbData, base.pCrlInfo->Issuer.pbData + base.pCrlInfo->Issuer.cbData),
              csp::Bytes(chain->rgpChain[0]->rgpElement[0]->pCertContext->pCertInfo->Issuer.pbData,
                         chain->rgpChain[0]->rgpElement[0]->pCertContext->pCertInfo->Issuer.pbData +
                             chain->rgpChain[0]->rgpElement[0]->pCertContext->pCertInfo->Issuer.cbData));
    EXPECT_EQ(chain->fHasRevocationFreshnessTime, 0) << "nothing is known of the intermediate";
    addCrl(pki::makeCrl(root_, {.thisUpdate = now_ - 900}));
    const Chain whole = chainOf(leaf_.der, atHand);
    EXPECT_NE(whole->fHasRevocationFreshnessTime, 0);
    EXPECT_EQ(whole->dwRevocationFreshnessTime, 900U);
}

TEST_F(ChainCrls, AreNotReadUnlessAskedFor) {
    addCrl(pki::crl(ca_, {77}));
    EXPECT_EQ(revocation(chainOf(leaf_.der)), nullptr);
    std::filesystem::permissions(folder("ca") / "1.crl", std::filesystem::perms::none);
    EXPECT_EQ(status(leaf_.der), 0U);
}

TEST_F(ChainCrls, AreNotOpenedUnlessAskedFor) {
    write(folder("ca") / "junk.crl", "junk"); // its name is reported by whoever reads it
    setenv("KLUNORTREDI_TRACE", "1", 1);
    const auto warnings = [&](DWORD flags) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(status(leaf_.der, flags), 0U);
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(warnings(0), "");
    EXPECT_EQ(warnings(capi::CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL), "");
    EXPECT_NE(warnings(atHand).find("junk.crl"), std::string::npos);
    unsetenv("KLUNORTREDI_TRACE");
}

TEST_F(ChainCrls, AtHandAreAppliedToAllButASelfSignedEnd) {
    addCrl(pki::crl(root_, {1})); // the root's own serial number
    EXPECT_EQ(status(leaf_.der, atHand), 0U);
    addCrl(pki::makeCrl(root_, {.serials = {1, 2}, .thisUpdate = now_}));
    EXPECT_EQ(elementErrors(chainOf(leaf_.der, atHand)), (std::vector<DWORD>{0, revoked, 0}));
}

TEST_F(ChainCrls, ComeFromEachStoreThatIssuersComeFrom) {
    for (const char* const store : {"root", "ca", "my", "trust"}) {
        write(folder(store) / "list.crl", view(pki::crl(ca_, {77})));
        EXPECT_EQ(status(leaf_.der, atHand), revoked) << store;
        std::filesystem::remove(folder(store) / "list.crl");
        EXPECT_EQ(status(leaf_.der, atHand), 0U) << store;
    }
    write(folder("others") / "list.crl", view(pki::crl(ca_, {77})));
    EXPECT_EQ(status(leaf_.der, atHand), 0U);
    additional_.reset(openCarriedStore({}, {pki::crl(ca_, {77})}));
    EXPECT_EQ(status(leaf_.der, atHand), revoked);
}

TEST_F(ChainCrls, ThatCannotBeReadHarmNoOther) {
    addCrl(pki::crl(ca_, {77}));
    write(folder("ca") / "0.crl", "junk");
    std::filesystem::create_directory(folder("ca") / "folder.crl");
    write(folder("ca") / "huge.crl", "0");
    std::filesystem::resize_file(folder("ca") / "huge.crl", (64ULL << 20U) + 1);
    write(folder("ca") / "locked.crl", "0");
    std::filesystem::permissions(folder("ca") / "locked.crl", std::filesystem::perms::none);
    csp::Bytes cut = pki::crl(ca_, {77});
    cut.resize(cut.size() / 2);
    write(folder("ca") / "00.crl", view(cut));
    setenv("KLUNORTREDI_TRACE", "1", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(status(leaf_.der, atHand), revoked);
    const std::string told = testing::internal::GetCapturedStderr();
    unsetenv("KLUNORTREDI_TRACE");
    for (const char* const name : {"/0.crl", "/00.crl", "/folder.crl", "/huge.crl"}) {
        EXPECT_NE(told.find(name), std::string::npos) << name;
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(status(leaf_.der, atHand), revoked);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "a library writes nothing unasked";
}

TEST_F(ChainCrls, AreTheNewestOfTheirIssuer) {
    addCrl(pki::makeCrl(ca_, {.serials = {77}, .thisUpdate = now_ - 500}));
    addCrl(pki::makeCrl(ca_, {.thisUpdate = now_ - 1000}));
    EXPECT_EQ(status(leaf_.der, atHand), revoked);
    addCrl(pki::makeCrl(ca_, {.thisUpdate = now_ - 100}));
    EXPECT_EQ(status(leaf_.der, atHand), 0U);
}

TEST_F(ChainCrls, ThatAreForgedNeverReplaceTrueOnes) {
    addCrl(pki::makeCrl(ca_, {.serials = {77}, .thisUpdate = now_ - 500}));
    csp::Bytes forged = pki::makeCrl(ca_, {.thisUpdate = now_ - 10});
    forged.back() ^= 1U;
    addCrl(forged);
    EXPECT_EQ(status(leaf_.der, atHand), revoked);
    const Entity namesake = pki::root("Intermediate"); // signs with a key of its own
    know(namesake);
    addCrl(pki::makeCrl(namesake, {.thisUpdate = now_ - 10}));
    EXPECT_EQ(status(leaf_.der, atHand), revoked);
}

TEST_F(ChainCrls, OfBrokenAlgorithmsAreNotBelieved) {
    static const Entity rsaRoot = pki::root("RSA", pki::KeyKind::Rsa);
    trust(rsaRoot);
    const Entity person = pki::make({.subject = "Person", .issuer = &rsaRoot, .serial = 5});
    addCrl(pki::makeCrl(rsaRoot, {.digest = EVP_md5()}));
    EXPECT_EQ(elementErrors(chainOf(person.der, end)), (std::vector<DWORD>{unknown, 0}));
}

TEST_F(ChainCrls, ThatAreExpiredStillRevokeButProveNothing) {
    addCrl(pki::makeCrl(ca_, {.serials = {77}, .thisUpdate = now_ - 500, .nextUpdate = now_ - 100}));
    EXPECT_EQ(status(leaf_.der, atHand), revoked);
    const Entity other = pki::make({.subject = "Other", .issuer = &ca_, .serial = 78});
    EXPECT_EQ(status(other.der, atHand), 0U);
    EXPECT_EQ(status(other.der, end), unknown);
    EXPECT_EQ(revocation(chainOf(other.der, atHand))->dwRevocationResult, capi::CRYPT_E_REVOCATION_OFFLINE)
        << "an expired list is not called good news";
}

TEST_F(ChainCrls, AreGoodThroughTheSecondOfTheirNextUpdate) {
    addCrl(pki::makeCrl(ca_, {.thisUpdate = now_ - 500, .nextUpdate = now_ - 100}));
    time_ = now_ - 100;
    EXPECT_EQ(status(leaf_.der, end), 0U);
    time_ = now_ - 99;
    EXPECT_EQ(status(leaf_.der, end), unknown);
    time_ = now_ - 500;
    EXPECT_EQ(status(leaf_.der, end), 0U) << "from the second of thisUpdate";
    time_ = now_ - 501;
    EXPECT_EQ(status(leaf_.der, end), unknown);
}

TEST_F(ChainCrls, WithoutATimeOfTheNextAreGoodForADay) {
    constexpr long day = 86400;
    addCrl(pki::makeCrl(ca_, {.serials = {78}, .thisUpdate = now_ - day, .nextUpdate = 0, .revoked = now_ - day}));
    time_ = now_;
    EXPECT_EQ(status(leaf_.der, end), 0U);
    time_ = now_ + 1;
    EXPECT_EQ(status(leaf_.der, end), unknown);
    EXPECT_EQ(status(leaf_.der, atHand), 0U) << "no checking flag: not known is not an error";
    EXPECT_EQ(status(pki::make({.subject = "Other", .issuer = &ca_, .serial = 78}).der, atHand), revoked);
}

TEST_F(ChainCrls, OfALaterTimeRevokeWhatWasRevokedByThen) {
    addCrl(pki::makeCrl(ca_, {.serials = {77}, .thisUpdate = now_ - 100, .revoked = now_ - 1000}));
    time_ = now_ - 1200;
    EXPECT_EQ(status(leaf_.der, atHand), 0U);
    EXPECT_EQ(status(leaf_.der, end), unknown);
    time_ = now_ - 500;
    EXPECT_EQ(status(leaf_.der, atHand), revoked);
}

TEST_F(ChainCrls, OfAnotherIssuerSayNothing) {
    const Entity stranger = pki::root("Stranger");
    know(stranger);
    addCrl(pki::crl(stranger, {77}));
    EXPECT_EQ(status(leaf_.der, atHand), 0U);
    EXPECT_EQ(status(leaf_.der, end), unknown);
    EXPECT_EQ(revocation(chainOf(leaf_.der, atHand)), nullptr);
}

TEST_F(ChainCrls, WithADeltaCountTogether) {
    addCrl(pki::makeCrl(ca_, {.thisUpdate = now_ - 1000, .extensions = {{NID_crl_number, "DER:02:01:0A"}}}));
    EXPECT_EQ(status(leaf_.der, atHand), 0U);
    const Entity fresh = pki::make(
        {.subject = "Fresh", .issuer = &ca_, .serial = 77, .extensions = {{NID_freshest_crl, "URI:http://x/d.crl"}}});
    addCrl(pki::makeCrl(ca_,
                        {.serials = {77},
                         .thisUpdate = now_ - 100,
                         .extensions = {{NID_crl_number, "DER:02:01:0B"}, {NID_delta_crl, "critical,DER:02:01:0A"}}}));
    const Chain chain = chainOf(fresh.der, atHand);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, revoked);
    const CERT_REVOCATION_CRL_INFO& info = *revocation(chain)->pCrlInfo;
    EXPECT_NE(info.pBaseCrlContext, nullptr);
    EXPECT_NE(info.pDeltaCrlContext, nullptr);
    EXPECT_NE(info.fDeltaCrlEntry, 0);
}

TEST_F(ChainCrls, OfOneMomentCountByTheirNumber) {
    const auto list = [&](const std::vector<long>& serials, const char* number) {
        return pki::makeCrl(ca_,
                            {.serials = serials, .thisUpdate = now_ - 100, .extensions = {{NID_crl_number, number}}});
    };
    const Entity other = pki::make({.subject = "Other", .issuer = &ca_, .serial = 78});
    addCrl(list({77}, "DER:02:01:05")); // before the other by its octets
    addCrl(list({78}, "DER:02:01:06"));
    EXPECT_EQ(status(other.der, atHand), revoked);
    EXPECT_EQ(status(leaf_.der, atHand), 0U) << "released by the later list";
}

TEST_F(ChainCrls, OfOneMomentAndNumberRevokeTogether) {
    for (const auto& extensions : {std::vector<std::pair<int, std::string>>{}, {{NID_crl_number, "DER:02:01:05"}}}) {
        const Entity authority = pki::intermediate("Another", root_, 55 + static_cast<long>(extensions.size()));
        know(authority);
        const Entity one = pki::make({.subject = "One", .issuer = &authority, .serial = 1});
        const Entity two = pki::make({.subject = "Two", .issuer = &authority, .serial = 2});
        for (const long serial : {1, 2}) {
            addCrl(pki::makeCrl(authority, {.serials = {serial}, .thisUpdate = now_ - 100, .extensions = extensions}));
        }
        for (const Entity* const entity : {&one, &two}) {
            const Chain chain = chainOf(entity->der, atHand);
            EXPECT_EQ(chain->TrustStatus.dwErrorStatus, revoked);
            ASSERT_NE(revocation(chain), nullptr);
            EXPECT_EQ(revocation(chain)->dwRevocationResult, capi::CRYPT_E_REVOKED);
            EXPECT_NE(revocation(chain)->pCrlInfo->pCrlEntry, nullptr);
        }
    }
}

TEST_F(ChainCrls, WithADeltaCountTogetherAlsoWhereNothingAnnouncesIt) {
    addCrl(pki::makeCrl(ca_, {.thisUpdate = now_ - 1000, .extensions = {{NID_crl_number, "DER:02:01:0A"}}}));
    const auto delta = [&](long serial, const char* base, const char* number, const char* reason) {
        return pki::makeCrl(ca_, {.serials = {serial},
                                  .thisUpdate = now_ - 100,
                                  .extensions = {{NID_crl_number, number}, {NID_delta_crl, base}},
                                  .entryExtensions = {{NID_crl_reason, reason}}});
    };
    addCrl(delta(77, "critical,DER:02:01:09", "DER:02:01:0A", "DER:0A:01:01"));
    addCrl(delta(77, "critical,DER:02:01:0A", "DER:02:01:0B", "DER:0A:01:08"));
    EXPECT_EQ(status(leaf_.der, atHand), 0U) << "not later than the base, and one that removes";
    addCrl(delta(77, "critical,DER:02:01:0B", "DER:02:01:0C", "DER:0A:01:01"));
    EXPECT_EQ(status(leaf_.der, atHand), revoked) << "of a base that is not at hand";
    const Entity other = pki::make({.subject = "Other", .issuer = &ca_, .serial = 78});
    addCrl(delta(78, "critical,DER:02:01:0A", "DER:02:01:0B", "DER:0A:01:01"));
    const Chain chain = chainOf(other.der, atHand);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, revoked);
    ASSERT_NE(revocation(chain), nullptr);
    EXPECT_EQ(revocation(chain)->dwRevocationResult, capi::CRYPT_E_REVOKED);
    EXPECT_NE(revocation(chain)->pCrlInfo->fDeltaCrlEntry, 0);
    time_ = now_ - 500;
    EXPECT_EQ(status(other.der, atHand), 0U) << "revoked after the time asked about";
}

TEST_F(ChainCrls, WithADeltaThatRemovesReleaseOnlyWhereDeltasAreAnnounced) {
    const auto list = [&](long age, const char* reason, const std::vector<std::pair<int, std::string>>& extensions) {
        return pki::makeCrl(ca_, {.serials = {77},
                                  .thisUpdate = now_ - age,
                                  .extensions = extensions,
                                  .entryExtensions = {{NID_crl_reason, reason}}});
    };
    addCrl(list(1000, "DER:0A:01:06", {{NID_crl_number, "DER:02:01:0A"}})); // on hold
    addCrl(list(100, "DER:0A:01:08", {{NID_crl_number, "DER:02:01:0B"}, {NID_delta_crl, "critical,DER:02:01:0A"}}));
    EXPECT_EQ(status(leaf_.der, atHand), revoked) << "nothing announces changes";
    const Entity fresh = pki::make(
        {.subject = "Fresh", .issuer = &ca_, .serial = 77, .extensions = {{NID_freshest_crl, "URI:http://x/d.crl"}}});
    EXPECT_EQ(status(fresh.der, atHand), 0U);
}

TEST_F(ChainCrls, WithADeltaRevokeAfterTheNextUpdateOfTheDelta) {
    addCrl(pki::makeCrl(ca_, {.thisUpdate = now_ - 1000, .extensions = {{NID_crl_number, "DER:02:01:0A"}}}));
    addCrl(pki::makeCrl(ca_,
                        {.serials = {77},
                         .thisUpdate = now_ - 500,
                         .nextUpdate = now_ - 100,
                         .revoked = now_ - 500,
                         .extensions = {{NID_crl_number, "DER:02:01:0B"}, {NID_delta_crl, "critical,DER:02:01:0A"}}}));
    EXPECT_EQ(status(leaf_.der, atHand), revoked);
}

TEST_F(ChainCrls, OfChangesAloneProveNothing) {
    const pki::WantedCrl changes{
        .serials = {77}, .extensions = {{NID_crl_number, "DER:02:01:0B"}, {NID_delta_crl, "critical,DER:02:01:0A"}}};
    addCrl(pki::makeCrl(ca_, changes));
    const std::vector<std::pair<int, std::string>> freshest{{NID_freshest_crl, "URI:http://x/d.crl"}};
    for (const auto& extensions : {std::vector<std::pair<int, std::string>>{}, freshest}) {
        const Entity other = pki::make({.subject = "Other", .issuer = &ca_, .serial = 78, .extensions = extensions});
        EXPECT_EQ(status(other.der, end), unknown);
    }
}

TEST_F(ChainCrls, OfChangesAloneRevokeWhatTheyList) {
    const auto changes = [&](const char* reason) {
        return pki::makeCrl(ca_,
                            {.serials = {77},
                             .thisUpdate = now_ - 100,
                             .revoked = now_ - 200,
                             .extensions = {{NID_crl_number, "DER:02:01:0B"}, {NID_delta_crl, "critical,DER:02:01:0A"}},
                             .entryExtensions = {{NID_crl_reason, reason}}});
    };
    additional_.reset(openCarriedStore({}, {changes("DER:0A:01:08")}));
    EXPECT_EQ(status(leaf_.der, end), unknown) << "an entry that removes needs the base";
    additional_.reset(openCarriedStore({}, {changes("DER:0A:01:01")}));
    const Chain chain = chainOf(leaf_.der, atHand);
    EXPECT_EQ(elementErrors(chain), (std::vector<DWORD>{revoked, 0, 0}));
    ASSERT_NE(revocation(chain), nullptr);
    EXPECT_EQ(revocation(chain)->pCrlInfo->pBaseCrlContext, nullptr);
    EXPECT_NE(revocation(chain)->pCrlInfo->pDeltaCrlContext, nullptr);
    EXPECT_NE(revocation(chain)->pCrlInfo->fDeltaCrlEntry, 0);
    time_ = now_ - 300;
    EXPECT_EQ(status(leaf_.der, atHand), 0U) << "revoked after the time asked about";
    time_ = 0;
    const Entity other = pki::root("Intermediate");
    additional_.reset(openCarriedStore(
        {}, {pki::makeCrl(
                other, {.serials = {77},
                        .extensions = {{NID_crl_number, "DER:02:01:0B"}, {NID_delta_crl, "critical,DER:02:01:0A"}}})}));
    EXPECT_EQ(status(leaf_.der, atHand), 0U) << "forged";
}

TEST_F(ChainCrls, ThatRemoveAnEntryWithoutBeingADeltaRevoke) {
    addCrl(pki::makeCrl(ca_, {.serials = {77}, .entryExtensions = {{NID_crl_reason, "DER:0A:01:08"}}}));
    const Chain chain = chainOf(leaf_.der, atHand);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, revoked);
    EXPECT_EQ(revocation(chain)->dwRevocationResult, capi::CRYPT_E_REVOKED);
}

TEST_F(ChainCrls, AreTooOldWhereTheCallerSaysSo) {
    addCrl(pki::makeCrl(ca_, {.serials = {78}, .thisUpdate = now_ - 500}));
    const Entity other = pki::make({.subject = "Other", .issuer = &ca_, .serial = 78});
    long_.emplace();
    long_->dwRevocationFreshnessTime = 400;
    EXPECT_EQ(status(leaf_.der, end), 0U) << "the field before says that it does not count";
    long_->fCheckRevocationFreshnessTime = 1;
    EXPECT_EQ(status(leaf_.der, end), unknown);
    EXPECT_EQ(revocation(chainOf(leaf_.der, atHand))->dwRevocationResult, capi::CRYPT_E_REVOCATION_OFFLINE);
    EXPECT_EQ(status(leaf_.der, atHand), 0U) << "a missing list is not an error there";
    EXPECT_EQ(status(other.der, end), revoked) << "however old";
    long_->dwRevocationFreshnessTime = 600;
    EXPECT_EQ(status(leaf_.der, end), 0U);
}

TEST_F(ChainCrls, OfAnIndirectIssuerCountWhereTheCertificateNamesIt) {
    const Entity signer = pki::make(
        {.subject = "CRL signer", .issuer = &root_, .serial = 60, .extensions = {{NID_key_usage, "critical,cRLSign"}}});
    know(signer);
    addCrl(pki::makeCrl(signer, {.serials = {77},
                                 .extensions = {{NID_issuing_distribution_point, "critical,indirectCRL:TRUE"}},
                                 .certificateIssuer = &ca_}));
    EXPECT_EQ(status(leaf_.der, atHand), 0U) << "the certificate does not name that issuer";
    const auto points = pki::onePoint({}, &signer);
    const Entity pointed = pki::make({.subject = "Pointed", .issuer = &ca_, .serial = 77, .change = points});
    EXPECT_EQ(status(pointed.der, atHand), revoked);
    const Entity other = pki::make({.subject = "Other", .issuer = &ca_, .serial = 78, .change = points});
    EXPECT_EQ(status(other.der, atHand), 0U);
}

TEST_F(ChainCrls, NeedAnIssuerThatMaySignThem) {
    const Entity limited = pki::make(
        {.subject = "Limited",
         .issuer = &root_,
         .serial = 9,
         .extensions = {{NID_basic_constraints, "critical,CA:TRUE"}, {NID_key_usage, "critical,keyCertSign"}}});
    know(limited);
    addCrl(pki::crl(limited, {77}));
    const Entity person = pki::make({.subject = "Person", .issuer = &limited, .serial = 77});
    EXPECT_EQ(status(person.der, atHand), 0U);
    EXPECT_EQ(status(person.der, end), unknown);
}

TEST_F(ChainCrls, UnknownOnesMayBeIgnoredByThePolicy) {
    const Chain chain = chainOf(leaf_.der, capi::CERT_CHAIN_REVOCATION_CHECK_CHAIN);
    EXPECT_EQ(policy(chain, 0), capi::CRYPT_E_NO_REVOCATION_CHECK);
    EXPECT_EQ(policy(chain, 0x100 | 0x400), capi::CRYPT_E_NO_REVOCATION_CHECK);
    EXPECT_EQ(policy(chain, 0x100 | 0x400 | 0x800), 0U);
}

} // namespace
