// Several ways from a certificate to an anchor: which is taken, what it costs, what is reported of the others.

#include "chain_fixture.hpp"

#include "stores/context.hpp"

#include <chrono>

namespace {

const std::vector<std::pair<int, std::string>> authority{{NID_basic_constraints, "critical,CA:TRUE"},
                                                         {NID_key_usage, "critical,keyCertSign,cRLSign"}};

class ChainPath : public ChainTest {
protected:
    static std::vector<csp::Bytes> encodings(const CERT_CHAIN_CONTEXT& chain) {
        std::vector<csp::Bytes> list;
        for (DWORD i = 0; i < chain.rgpChain[0]->cElement; ++i) {
            const PCCERT_CONTEXT context = chain.rgpChain[0]->rgpElement[i]->pCertContext;
            list.emplace_back(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded);
        }
        return list;
    }
    static Entity authorityOf(const std::string& subject, const Entity* issuer, long serial, EVP_PKEY* key = nullptr) {
        return pki::make(
            {.subject = subject, .issuer = issuer, .serial = serial, .extensions = authority, .reuseKey = key});
    }
};

TEST_F(ChainPath, FindsTheCrossCertificateBesideASelfSignedOne) {
    trust(root_);
    for (int attempt = 0; attempt < 4; ++attempt) { // whatever the names of the files are
        const Entity other = authorityOf("Other", nullptr, 1);
        const Entity cross = authorityOf("Other", &root_, 50, other.key.get());
        const Entity person = pki::make({.subject = "Person", .issuer = &other, .serial = 5});
        additional_ = memoryStore();
        add(additional_.get(), other.der);
        add(additional_.get(), cross.der);
        const Chain chain = chainOf(person.der);
        EXPECT_EQ(chain->TrustStatus.dwErrorStatus, 0U);
        EXPECT_EQ(encodings(*chain), (std::vector<csp::Bytes>{person.der, cross.der, root_.der}));
    }
}

TEST_F(ChainPath, FindsTheKeyAmongRootsOfOneName) {
    std::vector<Entity> roots;
    for (long serial = 1; serial <= 4; ++serial) {
        roots.push_back(authorityOf("Rekeyed", nullptr, serial));
        trust(roots.back());
    }
    for (const Entity& root : roots) {
        const Entity person = pki::make({.subject = "Person", .issuer = &root, .serial = 5});
        const Chain chain = chainOf(person.der);
        EXPECT_EQ(chain->TrustStatus.dwErrorStatus, 0U);
        EXPECT_EQ(encodings(*chain), (std::vector<csp::Bytes>{person.der, root.der}));
    }
}

TEST_F(ChainPath, PrefersTheCopyUnderATrustedRoot) {
    trust(root_);
    const Entity stranger = pki::root("Stranger");
    for (int attempt = 0; attempt < 4; ++attempt) {
        const Entity good = authorityOf("Twice", &root_, 50);
        const Entity copy = authorityOf("Twice", &stranger, 51, good.key.get());
        const Entity person = pki::make({.subject = "Person", .issuer = &good, .serial = 5});
        additional_ = memoryStore();
        add(additional_.get(), stranger.der);
        add(additional_.get(), copy.der);
        add(additional_.get(), good.der);
        const Chain chain = chainOf(person.der);
        EXPECT_EQ(encodings(*chain), (std::vector<csp::Bytes>{person.der, good.der, root_.der}));
        EXPECT_EQ(chain->TrustStatus.dwErrorStatus, 0U);
        EXPECT_NE(chain->rgpChain[0]->rgpElement[0]->TrustStatus.dwInfoStatus & capi::CERT_TRUST_HAS_PREFERRED_ISSUER,
                  0U);
    }
}

TEST_F(ChainPath, ReportsTheOtherChainsWhenAskedFor) {
    trust(root_);
    const Entity stranger = pki::root("Stranger");
    const Entity good = authorityOf("Twice", &root_, 50);
    const Entity copy = authorityOf("Twice", &stranger, 51, good.key.get());
    const Entity person = pki::make({.subject = "Person", .issuer = &good, .serial = 5});
    know(stranger);
    know(copy);
    know(good);
    EXPECT_EQ(chainOf(person.der)->cLowerQualityChainContext, 0U);
    Chain chain = chainOf(person.der, capi::CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, 0U);
    ASSERT_EQ(chain->cLowerQualityChainContext, 1U);
    const CERT_CHAIN_CONTEXT& lower = *chain->rgpLowerQualityChainContext[0];
    EXPECT_EQ(lower.TrustStatus.dwErrorStatus, capi::CERT_TRUST_IS_UNTRUSTED_ROOT);
    EXPECT_EQ(encodings(lower), (std::vector<csp::Bytes>{person.der, copy.der, stranger.der}));
    chain.reset();
    EXPECT_EQ(csp::liveContexts(), 0U);
}

TEST_F(ChainPath, OrdersPathsByTheGravestError) {
    trust(root_);
    const Entity stranger = pki::root("Stranger");
    // Under the trusted root the authority's certificate is expired, under the other it is not.
    const Entity expired = pki::make({.subject = "Twice",
                                      .issuer = &root_,
                                      .serial = 50,
                                      .notBefore = std::time(nullptr) - 7200,
                                      .notAfter = std::time(nullptr) - 3600,
                                      .extensions = authority});
    const Entity copy = authorityOf("Twice", &stranger, 51, expired.key.get());
    const Entity person = pki::make({.subject = "Person", .issuer = &expired, .serial = 5});
    know(stranger);
    know(copy);
    know(expired);
    const Chain chain = chainOf(person.der, capi::CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, capi::CERT_TRUST_IS_NOT_TIME_VALID);
    ASSERT_EQ(chain->cLowerQualityChainContext, 1U);
    EXPECT_EQ(chain->rgpLowerQualityChainContext[0]->TrustStatus.dwErrorStatus, capi::CERT_TRUST_IS_UNTRUSTED_ROOT);
}

TEST_F(ChainPath, FollowsKeyIdentifiersThatDiffer) {
    trust(root_);
    const Entity pointing = pki::make({.subject = "Pointing",
                                       .issuer = &root_,
                                       .serial = 5,
                                       .extensions = {{NID_authority_key_identifier, "DER:30:06:80:04:01:02:03:04"}}});
    EXPECT_EQ(status(pointing.der), capi::CERT_TRUST_IS_PARTIAL_CHAIN);
}

TEST_F(ChainPath, SaysThatALoopIsOne) {
    const Entity first = authorityOf("First", nullptr, 1);
    const Entity second = authorityOf("Second", &first, 2);
    const Entity back = authorityOf("First", &second, 3, first.key.get());
    const Entity person = pki::make({.subject = "Person", .issuer = &second, .serial = 5});
    know(second);
    know(back);
    EXPECT_EQ(status(person.der), capi::CERT_TRUST_IS_CYCLIC | capi::CERT_TRUST_IS_PARTIAL_CHAIN);
    trust(first);
    EXPECT_EQ(status(person.der), 0U);
}

TEST_F(ChainPath, EndsSoonAmongAuthoritiesThatAllCertifyEachOther) {
    constexpr long count = 12;
    std::vector<Entity> authorities;
    additional_ = memoryStore();
    for (long i = 0; i < count; ++i) {
        authorities.push_back(authorityOf("Mesh " + std::to_string(i), nullptr, 1));
    }
    for (long i = 0; i < count; ++i) {
        for (long j = 0; j < count; ++j) {
            if (i != j) {
                const auto& subject = authorities[static_cast<std::size_t>(i)];
                add(additional_.get(),
                    authorityOf("Mesh " + std::to_string(i), &authorities[static_cast<std::size_t>(j)], 100 + j,
                                subject.key.get())
                        .der,
                    capi::CERT_STORE_ADD_ALWAYS);
            }
        }
    }
    const Entity person = pki::make({.subject = "Person", .issuer = &authorities[0], .serial = 5});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NE(status(person.der), 0U);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(ChainPath, TakesAStoreInPlaceOfAnEngineAsTheOnlyAnchors) {
    standardChain();
    const Entity own = pki::root("Own");
    const Entity person = pki::make({.subject = "Person", .issuer = &own, .serial = 5});
    anchors_ = memoryStore();
    add(anchors_.get(), own.der);
    EXPECT_EQ(status(person.der), 0U);
    EXPECT_EQ(status(leaf_.der), capi::CERT_TRUST_IS_PARTIAL_CHAIN) << "store \"root\" is not asked";
}

TEST_F(ChainPath, DoesNotJudgeAnAnchorsOwnSignature) {
    const Entity anchor =
        pki::make({.subject = "Anchor", .kind = pki::KeyKind::Rsa, .extensions = authority, .digest = EVP_md5()});
    Entity damaged = pki::root("Damaged");
    damaged.der.back() ^= 1U;
    damaged.certificate = pki::decode(damaged.der);
    for (const Entity* const root : std::initializer_list<const Entity*>{&anchor, &damaged}) {
        trust(*root);
        EXPECT_EQ(status(pki::make({.subject = "Person", .issuer = root, .serial = 5}).der), 0U);
    }
}

TEST_F(ChainPath, FollowsLongChainsAndHasAnEnd) {
    additional_ = memoryStore();
    const auto chainOfLength = [&](int length) {
        Entity last = authorityOf("Long", nullptr, 1);
        trust(last);
        for (int i = 0; i < length - 2; ++i) {
            Entity next = authorityOf("Long " + std::to_string(i), &last, 2);
            add(additional_.get(), next.der, capi::CERT_STORE_ADD_ALWAYS);
            last = std::move(next);
        }
        return status(pki::make({.subject = "Person", .issuer = &last, .serial = 5}).der);
    };
    EXPECT_EQ(chainOfLength(64), 0U);
    EXPECT_EQ(chainOfLength(65), capi::CERT_TRUST_IS_PARTIAL_CHAIN);
}

TEST_F(ChainPath, GoesOverFromOneKeyOfAnAuthorityToItsNext) {
    // Nothing but the signature says which key signed which certificate of the one name.
    const Entity former = authorityOf("Rolled", nullptr, 1);
    const Entity current = authorityOf("Rolled", nullptr, 2);
    const Entity currentByFormer = authorityOf("Rolled", &former, 3, current.key.get());
    const Entity formerByCurrent = authorityOf("Rolled", &current, 4, former.key.get());
    know(currentByFormer);
    know(formerByCurrent);
    const Entity early = pki::make({.subject = "Early", .issuer = &former, .serial = 5});
    const Entity late = pki::make({.subject = "Late", .issuer = &current, .serial = 6});
    const auto under = [&](const Entity& anchor) {
        anchors_ = memoryStore();
        add(anchors_.get(), anchor.der);
    };
    under(former);
    EXPECT_EQ(status(late.der), 0U);
    EXPECT_EQ(encodings(*chainOf(late.der)), (std::vector<csp::Bytes>{late.der, currentByFormer.der, former.der}));
    EXPECT_EQ(status(early.der), 0U);
    under(current);
    EXPECT_EQ(status(early.der), 0U);
    EXPECT_EQ(encodings(*chainOf(early.der)), (std::vector<csp::Bytes>{early.der, formerByCurrent.der, current.der}));
    EXPECT_EQ(status(currentByFormer.der), capi::CERT_TRUST_IS_CYCLIC | capi::CERT_TRUST_IS_PARTIAL_CHAIN)
        << "its own key would vouch for it";
    under(root_);
    EXPECT_EQ(status(late.der), capi::CERT_TRUST_IS_CYCLIC | capi::CERT_TRUST_IS_PARTIAL_CHAIN);
}

TEST_F(ChainPath, DoesNotCallTheSignatureOfAFormerKeyForgedThatIsNotAtHand) {
    const Entity former = authorityOf("Rolled", nullptr, 1);
    const Entity current = authorityOf("Rolled", &former, 2);
    know(current);
    EXPECT_EQ(status(pki::make({.subject = "Late", .issuer = &current, .serial = 6}).der),
              capi::CERT_TRUST_IS_PARTIAL_CHAIN);
}

TEST_F(ChainPath, RefusesAKeyThatTheFormerOneDidNotSign) {
    const Entity former = authorityOf("Rolled", nullptr, 1);
    trust(former);
    const Entity current = authorityOf("Rolled", nullptr, 2);
    Entity forged = authorityOf("Rolled", &former, 3, current.key.get());
    forged.der.back() ^= 1U;
    know(forged);
    EXPECT_NE(status(pki::make({.subject = "Late", .issuer = &current, .serial = 6}).der), 0U);
}

TEST_F(ChainPath, SaysThatItsLimitsAreReached) {
    constexpr int levels = 4;
    constexpr long crowd = 55; // of certificates under the name of each issuer, all looked at before the true one
    additional_ = memoryStore();
    Entity issuer = authorityOf("Crowd", nullptr, 1);
    trust(issuer);
    const Entity forger = authorityOf("Forger", nullptr, 1);
    for (int level = 0; level < levels; ++level) {
        const std::string name = "Crowd " + std::to_string(level);
        for (long serial = 0; serial < crowd; ++serial) {
            add(additional_.get(),
                pki::make({.subject = name,
                           .issuer = &forger,
                           .serial = serial,
                           .notBefore = std::time(nullptr) - 60,
                           .extensions = authority,
                           .reuseKey = forger.key.get()})
                    .der,
                capi::CERT_STORE_ADD_ALWAYS);
        }
        issuer = authorityOf(name, &issuer, 1000);
        add(additional_.get(), issuer.der, capi::CERT_STORE_ADD_ALWAYS);
    }
    const Chain chain = chainOf(pki::make({.subject = "Person", .issuer = &issuer, .serial = 5}).der);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, capi::CERT_TRUST_IS_PARTIAL_CHAIN) << "no signature is called wrong";
    EXPECT_EQ(chain->TrustStatus.dwInfoStatus, capi::CERT_TRUST_SEARCH_LIMITED);
    additional_.reset();
    const Chain missing = chainOf(leaf_.der);
    EXPECT_EQ(missing->TrustStatus.dwErrorStatus, capi::CERT_TRUST_IS_PARTIAL_CHAIN);
    EXPECT_EQ(missing->TrustStatus.dwInfoStatus, 0U) << "its issuer is nowhere";
}

TEST_F(ChainPath, JudgesNoMoreLongPathsThanTheirSignaturesAllow) {
    constexpr int levels = 59;
    constexpr long variants = 8; // of the authority that issued the certificate: as many paths
    additional_ = memoryStore();
    Entity issuer = pki::root("Stranger");
    add(additional_.get(), issuer.der, capi::CERT_STORE_ADD_ALWAYS);
    for (int level = 0; level < levels; ++level) {
        issuer = authorityOf("Level " + std::to_string(level), &issuer, 2);
        add(additional_.get(), issuer.der, capi::CERT_STORE_ADD_ALWAYS);
    }
    const Entity last = authorityOf("Variant", &issuer, 100);
    add(additional_.get(), last.der, capi::CERT_STORE_ADD_ALWAYS);
    for (long i = 1; i < variants; ++i) {
        add(additional_.get(), authorityOf("Variant", &issuer, 100 + i, last.key.get()).der,
            capi::CERT_STORE_ADD_ALWAYS);
    }
    const Entity person = pki::make({.subject = "Person", .issuer = &last, .serial = 5});
    const Chain chain = chainOf(person.der, capi::CERT_CHAIN_RETURN_LOWER_QUALITY_CONTEXTS);
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, capi::CERT_TRUST_IS_UNTRUSTED_ROOT);
    EXPECT_EQ(chain->TrustStatus.dwInfoStatus, capi::CERT_TRUST_SEARCH_LIMITED);
    EXPECT_EQ(chain->rgpChain[0]->cElement, 62U);
    EXPECT_EQ(chain->cLowerQualityChainContext, 4U) << "256 signatures are those of four paths";
}

} // namespace
