// Which of several issuers and of several faulty chains is chosen, and where the search for them ends.

#include "chain_fixture.hpp"

#include "asn1/der.hpp"
#include "chains/chain_quality.hpp"

#include <openssl/core_names.h>

#include <array>

namespace {

const std::vector<std::pair<int, std::string>> authority{{NID_basic_constraints, "critical,CA:TRUE"},
                                                         {NID_key_usage, "critical,keyCertSign,cRLSign"}};

csp::Bytes thumbprintOf(const Entity& entity) {
    csp::Bytes digest(20);
    X509_digest(entity.certificate.get(), EVP_sha1(), digest.data(), nullptr);
    return digest;
}

/// Certificates of one name and one key under the trusted root; what differs decides.
class ChainChoice : public ChainTest {
protected:
    ChainChoice() { trust(root_); }

    Entity issuer(long serial, std::time_t age, std::time_t end = 86400,
                  const std::vector<std::pair<int, std::string>>& more = {}) const {
        auto extensions = authority;
        extensions.insert(extensions.end(), more.begin(), more.end());
        return pki::make({.subject = "Issuer",
                          .issuer = &root_,
                          .serial = serial,
                          .notBefore = now_ - age,
                          .notAfter = now_ + end,
                          .extensions = extensions,
                          .reuseKey = key_.get()});
    }
    /// The one of `issuers` that stands over `person`, in whatever order they are at hand.
    csp::Bytes chosen(const csp::Bytes& person, const std::vector<const Entity*>& issuers) {
        csp::Bytes found;
        for (const bool reversed : {false, true}) {
            additional_ = memoryStore();
            for (std::size_t i = 0; i < issuers.size(); ++i) {
                add(additional_.get(), issuers[reversed ? issuers.size() - 1 - i : i]->der,
                    capi::CERT_STORE_ADD_ALWAYS);
            }
            const Chain chain = chainOf(person);
            const PCCERT_CONTEXT context = chain->rgpChain[0]->rgpElement[1]->pCertContext;
            const csp::Bytes now(context->pbCertEncoded, context->pbCertEncoded + context->cbCertEncoded);
            EXPECT_TRUE(!reversed || now == found) << "the order at hand decides nothing";
            found = now;
        }
        return found;
    }
    csp::Bytes person(const Entity& issuer, std::time_t end = 86400,
                      const std::vector<std::pair<int, std::string>>& extensions = {}) const {
        return pki::make({.subject = "Person",
                          .issuer = &issuer,
                          .serial = 5,
                          .notBefore = now_ - 9000,
                          .notAfter = now_ + end,
                          .extensions = extensions})
            .der;
    }

    const std::time_t now_ = std::time(nullptr);
    csp::ossl::Pkey key_ = pki::newKey(pki::KeyKind::Ec);
};

TEST_F(ChainChoice, TakesTheAnchorFirst) {
    const Entity anchor =
        pki::make({.subject = "Issuer", .notBefore = now_ - 8000, .extensions = authority, .reuseKey = key_.get()});
    trust(anchor);
    const Entity later = issuer(2, 100);
    EXPECT_EQ(chosen(person(later), {&later}), anchor.der);
}

TEST_F(ChainChoice, TakesTheAnchorAmongManyEqualCopiesOfIt) {
    const Entity anchor =
        pki::make({.subject = "Issuer", .notBefore = now_ - 8000, .extensions = authority, .reuseKey = key_.get()});
    trust(anchor);
    // More than a sort would leave in the order at hand by chance.
    const std::vector<const Entity*> copies(40, &anchor);
    EXPECT_EQ(chosen(person(anchor), copies), anchor.der);
    const Chain chain = chainOf(person(anchor));
    EXPECT_EQ(chain->TrustStatus.dwErrorStatus, 0U) << "a copy that is no anchor is not trusted";
}

TEST_F(ChainChoice, TakesTheIssuerWhoseKeyIdentifierIsNamedNext) {
    const Entity named = issuer(2, 8000, 86400, {{NID_subject_key_identifier, "01:02:03:04"}});
    const Entity later = issuer(3, 100);
    const std::vector<std::pair<int, std::string>> naming{
        {NID_authority_key_identifier, "DER:30:06:80:04:01:02:03:04"}};
    EXPECT_EQ(chosen(person(named, 86400, naming), {&named, &later}), named.der);
    EXPECT_EQ(chosen(person(named), {&named, &later}), later.der) << "the identifier is not named";
}

TEST_F(ChainChoice, TakesTheIssuerThatIsValidAtTheTimeNext) {
    // The person's own certificate is expired: both chains are as bad, and the first found is the answer.
    const Entity valid = issuer(2, 8000);
    const Entity expired = issuer(3, 200, -100);
    EXPECT_EQ(chosen(person(valid, -50), {&valid, &expired}), valid.der);
}

TEST_F(ChainChoice, TakesTheIssuerThatBeganLaterNext) {
    const Entity earlier = issuer(2, 8000);
    const Entity later = issuer(3, 100);
    EXPECT_EQ(chosen(person(earlier), {&earlier, &later}), later.der);
}

TEST_F(ChainChoice, TakesTheLowerThumbprintLast) {
    for (long attempt = 0; attempt < 4; ++attempt) {
        const Entity one = issuer(10 + attempt, 500);
        const Entity other = issuer(20 + attempt, 500);
        const bool oneIsLower = thumbprintOf(one) < thumbprintOf(other);
        EXPECT_EQ(chosen(person(one), {&one, &other}), (oneIsLower ? one : other).der);
    }
}

// ---- of chains with errors

TEST(ChainQuality, IsDecidedByTheGravestErrorThatOnlyOneHas) {
    const std::array order{
        capi::CERT_TRUST_IS_PARTIAL_CHAIN,
        capi::CERT_TRUST_IS_UNTRUSTED_ROOT,
        capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID,
        capi::CERT_TRUST_IS_EXPLICIT_DISTRUST,
        capi::CERT_TRUST_IS_REVOKED,
        capi::CERT_TRUST_INVALID_BASIC_CONSTRAINTS,
        capi::CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT,
        capi::CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT,
        capi::CERT_TRUST_INVALID_EXTENSION,
        capi::CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY,
        capi::CERT_TRUST_IS_NOT_VALID_FOR_USAGE,
        capi::CERT_TRUST_IS_NOT_TIME_VALID,
        capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN,
    };
    DWORD lesser = 0; // all errors that are less grave than the one looked at
    for (std::size_t i = order.size(); i-- > 0;) {
        EXPECT_TRUE(csp::isBetterChain(lesser, order[i])) << i;
        EXPECT_FALSE(csp::isBetterChain(order[i], lesser)) << i;
        EXPECT_FALSE(csp::isBetterChain(order[i] | lesser, order[i])) << "more errors are not better";
        EXPECT_EQ(csp::isBetterChain(order[i], order[i] | lesser), lesser != 0) << "both have it: the next decides";
        EXPECT_FALSE(csp::isBetterChain(order[i], order[i])) << "of equal ones neither is better";
        lesser |= order[i];
    }
    EXPECT_TRUE(csp::isBetterChain(0, 0x40000000)) << "an error without a place in the order is one";
}

// ---- where the search ends

class ChainLimits : public ChainChoice {
protected:
    /// A chain's errors, and whether a limit was reached.
    struct Found {
        DWORD errors;
        bool limited;
        friend bool operator==(const Found&, const Found&) = default;
    };
    Found found(const csp::Bytes& der) {
        const Chain chain = chainOf(der);
        return {chain->TrustStatus.dwErrorStatus,
                (chain->TrustStatus.dwInfoStatus & capi::CERT_TRUST_SEARCH_LIMITED) != 0};
    }
    /// One more certificate of the issuer's name and key, by another authority.
    void addIssuerUnder(const Entity& authorityAbove, long serial) {
        add(additional_.get(),
            pki::make({.subject = "Issuer",
                       .issuer = &authorityAbove,
                       .serial = serial,
                       .notBefore = now_ - 60,
                       .extensions = authority,
                       .reuseKey = key_.get()})
                .der,
            capi::CERT_STORE_ADD_ALWAYS);
    }
    /// `count` certificates of the issuer's name with another key, looked at before the true one.
    void crowd(long count, EVP_PKEY* key, const std::function<void(X509*)>& change = {}) {
        for (long i = 0; i < count; ++i) {
            add(additional_.get(),
                pki::make({.subject = "Issuer",
                           .issuer = &root_,
                           .serial = ++serial_,
                           .notBefore = now_ - 60,
                           .extensions = authority,
                           .reuseKey = key,
                           .change = change})
                    .der,
                capi::CERT_STORE_ADD_ALWAYS);
        }
    }
    /// A chain over the true issuer, which is the longest of its name.
    Found amongThem() {
        const Entity honest = issuer(120, 8000, 86400, {{NID_subject_key_identifier, "01:02:03:04:05:06:07:08"}});
        add(additional_.get(), honest.der);
        return found(person(honest));
    }
    void startAnew() { additional_ = memoryStore(); }

    long serial_ = 0;
    const csp::ossl::Pkey forged_ = pki::newKey(pki::KeyKind::Ec);
    static constexpr Found trusted{0, false};
    static constexpr Found missed{capi::CERT_TRUST_IS_PARTIAL_CHAIN, true};
};

TEST_F(ChainLimits, OfOneNameAreSixtyFourCertificates) {
    startAnew();
    crowd(63, forged_.get());
    EXPECT_EQ(amongThem(), trusted);
    crowd(1, forged_.get());
    EXPECT_EQ(amongThem(), missed);
}

TEST_F(ChainLimits, CountAKeyOnALargeCurveAsFourChecks) {
    const csp::ossl::Pkey large(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-384"));
    startAnew();
    crowd(49, large.get());
    EXPECT_EQ(amongThem(), trusted) << "196 of 200, and one for the true issuer";
    crowd(1, large.get());
    EXPECT_EQ(amongThem(), missed);
}

TEST_F(ChainLimits, CountAnRsaKeyWithAHugeExponentAsSixteenChecks) {
    const csp::ossl::Pkey rsa(EVP_RSA_gen(1024));
    const csp::ossl::Pkey ordinary(EVP_RSA_gen(1024));
    key_.reset(EVP_RSA_gen(1024)); // a key of another kind is not looked at
    const auto huge = [&](X509* x) {
        BIGNUM* modulus = nullptr;
        EVP_PKEY_get_bn_param(rsa.get(), OSSL_PKEY_PARAM_RSA_N, &modulus);
        const csp::ossl::Bn owner(modulus);
        csp::Bytes number(static_cast<std::size_t>(BN_num_bytes(modulus)) + 1); // a zero first: it is positive
        BN_bn2bin(modulus, number.data() + 1);
        const csp::Bytes exponent{1, 0, 0, 0, 0, 0, 0, 0, 1}; // 65 bits
        const csp::Bytes key = csp::der::sequence({csp::der::integer(number), csp::der::integer(exponent)});
        X509_PUBKEY_set0_param(X509_get_X509_PUBKEY(x), OBJ_nid2obj(NID_rsaEncryption), V_ASN1_NULL, nullptr,
                               static_cast<unsigned char*>(OPENSSL_memdup(key.data(), key.size())),
                               static_cast<int>(key.size()));
    };
    startAnew();
    crowd(12, rsa.get(), huge);
    crowd(6, ordinary.get());
    EXPECT_EQ(amongThem(), trusted) << "192 and 6 of 200, and one each for the true issuer and the root";
    crowd(1, ordinary.get());
    EXPECT_EQ(amongThem(), missed);
}

TEST_F(ChainLimits, OfOneCertificateAreEightIssuers) {
    const Entity stranger = pki::root("Stranger");
    const auto withCopies = [&](long count) {
        additional_ = memoryStore();
        for (long serial = 1; serial <= count; ++serial) {
            addIssuerUnder(stranger, serial);
        }
        const Entity honest = issuer(120, 8000);
        add(additional_.get(), honest.der);
        return found(person(honest));
    };
    EXPECT_EQ(withCopies(7), trusted);
    EXPECT_EQ(withCopies(8), missed);
}

TEST_F(ChainLimits, OfOneChainAreSixteenPaths) {
    const csp::ossl::Pkey strange = pki::newKey(pki::KeyKind::Ec);
    const auto withRoots = [&](long roots) { // two ways to each, before the way to the anchor
        additional_ = memoryStore();
        std::optional<Entity> stranger;
        for (long serial = 1; serial <= roots; ++serial) {
            stranger = pki::make(
                {.subject = "Stranger", .serial = serial, .extensions = authority, .reuseKey = strange.get()});
            add(additional_.get(), stranger->der, capi::CERT_STORE_ADD_ALWAYS);
        }
        for (long serial = 1; serial <= 2; ++serial) {
            addIssuerUnder(*stranger, serial);
        }
        const Entity honest = issuer(120, 8000);
        add(additional_.get(), honest.der);
        return found(person(honest));
    };
    EXPECT_EQ(withRoots(7), trusted) << "the fifteenth";
    EXPECT_EQ(withRoots(8), (Found{capi::CERT_TRUST_IS_UNTRUSTED_ROOT, true})) << "the seventeenth";
}

} // namespace
