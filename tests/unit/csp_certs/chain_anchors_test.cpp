// Where trust begins, where issuers come from, and what the policy's flags leave of a verdict.

#include "chain_fixture.hpp"

#include "chains/chain_policy.hpp"

#include <openssl/pem.h>

namespace {

class ChainAnchors : public ChainTest {
protected:
    static std::string pem(const Entity& entity) {
        const csp::ossl::Bio out(BIO_new(BIO_s_mem()));
        PEM_write_bio_X509(out.get(), entity.certificate.get());
        char* data = nullptr;
        const long size = BIO_get_mem_data(out.get(), &data);
        return {data, static_cast<std::size_t>(size)};
    }
};

TEST_F(ChainAnchors, NeedNotBeSelfSigned) {
    trust(ca_);
    EXPECT_EQ(elementErrors(chainOf(leaf_.der)), (std::vector<DWORD>{0, 0})) << "the root is nowhere";
    trust(leaf_);
    EXPECT_EQ(elementErrors(chainOf(leaf_.der)), std::vector<DWORD>{0});
}

TEST_F(ChainAnchors, ThatAreNotSelfSignedAreRevokedByTheirIssuersLists) {
    constexpr DWORD listsAtHand = capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY;
    trust(ca_);
    revoke(pki::root("Root"), {2}); // of another key
    revoke(root_, {2});
    EXPECT_EQ(status(leaf_.der, listsAtHand), 0U) << "nobody knows whose lists they are";
    know(root_);
    EXPECT_EQ(elementErrors(chainOf(leaf_.der, listsAtHand)), (std::vector<DWORD>{0, capi::CERT_TRUST_IS_REVOKED}));
    trust(root_);
    EXPECT_NE(status(leaf_.der, listsAtHand) & capi::CERT_TRUST_IS_REVOKED, 0U) << "by either path";
    EXPECT_EQ(status(leaf_.der), 0U) << "nobody asked";
}

TEST_F(ChainAnchors, ThatAreNotSelfSignedAreJudgedByTheNewestListOfTheirIssuer) {
    trust(ca_);
    know(root_);
    const std::time_t now = std::time(nullptr);
    addCrl(pki::makeCrl(root_, {.serials = {2}, .thisUpdate = now - 7200}));
    addCrl(pki::makeCrl(root_, {.serials = {3}, .thisUpdate = now - 60}));
    EXPECT_EQ(status(leaf_.der, capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY), 0U);
}

TEST_F(ChainAnchors, ThatAreSelfSignedAreNotRevokedByThemselvesAndNotSaidToBe) {
    standardChain();
    revoke(root_, {ASN1_INTEGER_get(X509_get0_serialNumber(root_.certificate.get()))});
    const Chain chain = chainOf(leaf_.der, capi::CERT_CHAIN_REVOCATION_CHECK_CACHE_ONLY);
    EXPECT_EQ(elementErrors(chain), (std::vector<DWORD>{0, 0, 0}));
    EXPECT_EQ(chain->rgpChain[0]->rgpElement[2]->pRevocationInfo, nullptr);
}

TEST_F(ChainAnchors, ComeFromNothingOfTheOperatingSystem) {
    know(ca_);
    write(home_ / "bundle.pem", pem(root_));
    const unsigned long hash =
        X509_NAME_hash_ex(X509_get_subject_name(root_.certificate.get()), nullptr, nullptr, nullptr);
    char name[16];
    std::snprintf(name, sizeof name, "%08lx.0", hash);
    write(home_ / "hashed" / name, pem(root_));
    setenv("SSL_CERT_FILE", (home_ / "bundle.pem").c_str(), 1);
    setenv("SSL_CERT_DIR", (home_ / "hashed").c_str(), 1);
    EXPECT_EQ(status(leaf_.der), capi::CERT_TRUST_IS_PARTIAL_CHAIN);
    know(root_);
    EXPECT_EQ(status(leaf_.der), capi::CERT_TRUST_IS_UNTRUSTED_ROOT);
    unsetenv("SSL_CERT_FILE");
    unsetenv("SSL_CERT_DIR");
}

TEST_F(ChainAnchors, FindIssuersInTheStoresCaMyAndTrustAndInNoOther) {
    trust(root_);
    for (const char* const store : {"ca", "my", "trust"}) {
        const Entity issuer = pki::intermediate(std::string("In ") + store, root_);
        const Entity below = pki::make({.subject = "Below", .issuer = &issuer, .serial = 5});
        EXPECT_EQ(status(below.der), capi::CERT_TRUST_IS_PARTIAL_CHAIN) << store;
        ASSERT_NE(add(systemStore(store).get(), issuer.der), nullptr) << store;
        EXPECT_EQ(status(below.der), 0U) << store;
    }
    ASSERT_NE(add(systemStore("others").get(), ca_.der), nullptr);
    EXPECT_EQ(status(leaf_.der), capi::CERT_TRUST_IS_PARTIAL_CHAIN);
}

TEST_F(ChainAnchors, AreJudgedByTheirTimesAndExtensions) {
    const std::vector<std::pair<int, std::string>> authority{{NID_basic_constraints, "critical,CA:TRUE"}};
    const auto under = [&](const Entity& anchor) {
        trust(anchor);
        return elementErrors(chainOf(pki::make({.subject = "Below", .issuer = &anchor, .serial = 5}).der));
    };
    EXPECT_EQ(under(pki::make({.subject = "Expired",
                               .notBefore = std::time(nullptr) - 7200,
                               .notAfter = std::time(nullptr) - 60,
                               .extensions = authority})),
              (std::vector<DWORD>{0, capi::CERT_TRUST_IS_NOT_TIME_VALID}));
    EXPECT_EQ(under(pki::make({.subject = "Not an authority", .extensions = {{NID_basic_constraints, "CA:FALSE"}}})),
              (std::vector<DWORD>{0, capi::CERT_TRUST_INVALID_BASIC_CONSTRAINTS}));
    EXPECT_EQ(under(pki::make({.subject = "Version 4",
                               .extensions = authority,
                               .change = [](X509* certificate) { X509_set_version(certificate, 3); }})),
              (std::vector<DWORD>{0, capi::CERT_TRUST_INVALID_EXTENSION}));
    const auto unknown = [](X509* certificate) {
        const csp::ossl::Asn1Object oid(OBJ_txt2obj("1.2.3.4.7", 1));
        ASN1_OCTET_STRING* const value = ASN1_OCTET_STRING_new();
        ASN1_OCTET_STRING_set(value, reinterpret_cast<const unsigned char*>("\x05\x00"), 2);
        X509_EXTENSION* const extension = X509_EXTENSION_create_by_OBJ(nullptr, oid.get(), 1, value);
        X509_add_ext(certificate, extension, -1);
        X509_EXTENSION_free(extension);
        ASN1_OCTET_STRING_free(value);
    };
    EXPECT_EQ(under(pki::make({.subject = "Critical", .extensions = authority, .change = unknown})),
              (std::vector<DWORD>{0, capi::CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT}));
    const Entity limited = pki::make({.subject = "Limited",
                                      .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                                     {NID_name_constraints, "critical,permitted;DNS:example.org"}}});
    trust(limited);
    EXPECT_EQ(status(pki::make({.subject = "Named",
                                .issuer = &limited,
                                .serial = 5,
                                .extensions = {{NID_subject_alt_name, "DNS:www.example.com"}}})
                         .der),
              capi::CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT);
}

TEST_F(ChainAnchors, AreDistrustedLikeAnyOtherCertificate) {
    standardChain();
    add(systemStore("disallowed").get(), root_.der);
    EXPECT_EQ(elementErrors(chainOf(leaf_.der)), (std::vector<DWORD>{0, 0, capi::CERT_TRUST_IS_EXPLICIT_DISTRUST}));
}

TEST_F(ChainAnchors, NeedCertificatesThatMaySignThoseBelow) {
    standardChain();
    const Entity signer = pki::make({.subject = "Signer",
                                     .issuer = &root_,
                                     .serial = 9,
                                     .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                                    {NID_key_usage, "critical,digitalSignature,cRLSign"}}});
    know(signer);
    const auto errors = elementErrors(chainOf(pki::make({.subject = "Below", .issuer = &signer, .serial = 5}).der));
    ASSERT_EQ(errors.size(), 3U);
    EXPECT_EQ(errors[0], 0U);
    EXPECT_NE(errors[1], 0U);
    EXPECT_EQ(errors[2], 0U);
    // A certificate that issues nothing may say what it likes of issuing.
    const auto saying = [&](long serial, int extension, const char* value) {
        return status(
            pki::make({.subject = "Person", .issuer = &ca_, .serial = serial, .extensions = {{extension, value}}}).der);
    };
    EXPECT_EQ(saying(5, NID_key_usage, "critical,keyCertSign"), 0U);
    EXPECT_EQ(saying(6, NID_basic_constraints, "critical,CA:FALSE,pathlen:3"), 0U);
    EXPECT_EQ(saying(7, NID_key_usage, "critical,keyEncipherment"), 0U)
        << "key usage of the end certificate is for the caller";
}

// ---- the base policy

/// A chain of one element with these error bits.
class BasePolicy : public ChainAnchors {
protected:
    /// All flags that ignore something.
    static constexpr DWORD everything = ~0U;
    static DWORD code(DWORD bits, DWORD flags) {
        CERT_CHAIN_ELEMENT element{};
        element.TrustStatus.dwErrorStatus = bits;
        CERT_CHAIN_ELEMENT* elements[]{&element};
        CERT_SIMPLE_CHAIN simple{};
        simple.TrustStatus.dwErrorStatus = bits;
        simple.cElement = 1;
        simple.rgpElement = elements;
        CERT_SIMPLE_CHAIN* chains[]{&simple};
        CERT_CHAIN_CONTEXT chain{};
        chain.TrustStatus.dwErrorStatus = bits;
        chain.cChain = 1;
        chain.rgpChain = chains;
        CERT_CHAIN_POLICY_STATUS verdict{};
        csp::judgeBasePolicy(chain, flags, verdict);
        return verdict.dwError;
    }
};

TEST_F(BasePolicy, IgnoresWhatEachFlagNamesAndNothingElse) {
    struct Row {
        DWORD flag;
        std::vector<DWORD> bits;
    };
    const std::vector<Row> rows{
        {0x00000001, {capi::CERT_TRUST_IS_NOT_TIME_VALID}},
        {0x00000008, {capi::CERT_TRUST_INVALID_BASIC_CONSTRAINTS}},
        {0x00000010, {capi::CERT_TRUST_IS_UNTRUSTED_ROOT, capi::CERT_TRUST_IS_PARTIAL_CHAIN}},
        {0x00000020, {capi::CERT_TRUST_IS_NOT_VALID_FOR_USAGE}},
        {0x00000040,
         {capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS, capi::CERT_TRUST_HAS_NOT_SUPPORTED_NAME_CONSTRAINT,
          capi::CERT_TRUST_HAS_NOT_DEFINED_NAME_CONSTRAINT, capi::CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT,
          capi::CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT}},
        {0x00000080, {capi::CERT_TRUST_INVALID_POLICY_CONSTRAINTS, capi::CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY}},
        {0x00002000, {capi::CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT}},
        {0x08000000, {capi::CERT_TRUST_HAS_WEAK_SIGNATURE}},
        {0x00000100, {capi::CERT_TRUST_REVOCATION_STATUS_UNKNOWN, capi::CERT_TRUST_IS_OFFLINE_REVOCATION}},
    };
    for (const Row& row : rows) {
        for (const DWORD bit : row.bits) {
            EXPECT_NE(code(bit, 0), 0U) << std::hex << bit;
            EXPECT_EQ(code(bit, row.flag), 0U) << std::hex << bit;
            EXPECT_NE(code(bit, everything & ~row.flag), 0U) << std::hex << bit;
        }
    }
}

TEST_F(BasePolicy, NeverIgnoresForgeryDistrustRevocationAndWhatItDoesNotKnow) {
    EXPECT_EQ(code(capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID, everything), capi::TRUST_E_CERT_SIGNATURE);
    EXPECT_EQ(code(capi::CERT_TRUST_IS_EXPLICIT_DISTRUST, everything), capi::TRUST_E_EXPLICIT_DISTRUST);
    EXPECT_EQ(code(capi::CERT_TRUST_IS_REVOKED, everything), capi::CRYPT_E_REVOKED);
    for (const DWORD bit : {capi::CERT_TRUST_INVALID_EXTENSION, capi::CERT_TRUST_IS_CYCLIC, DWORD{0x40000000}}) {
        EXPECT_NE(code(bit, everything), 0U) << std::hex << bit;
    }
    EXPECT_EQ(code(0, 0), 0U);
}

TEST_F(BasePolicy, ReturnsTheGravestError) {
    EXPECT_EQ(code(~0U, 0), capi::TRUST_E_CERT_SIGNATURE);
    EXPECT_EQ(code(~capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID, 0), capi::TRUST_E_EXPLICIT_DISTRUST);
    EXPECT_EQ(code(capi::CERT_TRUST_IS_NOT_TIME_VALID | capi::CERT_TRUST_IS_REVOKED, 0), capi::CRYPT_E_REVOKED);
    EXPECT_EQ(code(capi::CERT_TRUST_IS_NOT_TIME_VALID | capi::CERT_TRUST_IS_UNTRUSTED_ROOT, 0),
              capi::CERT_E_UNTRUSTEDROOT);
    EXPECT_EQ(code(capi::CERT_TRUST_IS_NOT_TIME_VALID | capi::CERT_TRUST_IS_NOT_VALID_FOR_USAGE, 0),
              capi::CERT_E_EXPIRED);
    EXPECT_EQ(code(capi::CERT_TRUST_IS_NOT_TIME_VALID | capi::CERT_TRUST_IS_NOT_VALID_FOR_USAGE, 0x1),
              capi::CERT_E_WRONG_USAGE)
        << "what is left";
}

} // namespace
