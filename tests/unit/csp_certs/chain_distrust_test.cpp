// What is distrusted, and algorithms that prove nothing.

#include "chain_fixture.hpp"

#include "asn1/der.hpp"

#include <openssl/core_names.h>
#include <openssl/dsa.h>
#include <openssl/ecdsa.h>

namespace {

/// A certificate for the RSA key of `of` with another public exponent.
Entity withExponent(const Entity& of, const Entity& issuer, const csp::Bytes& exponent) {
    return pki::make(
        {.subject = "Again", .issuer = &issuer, .serial = 6, .reuseKey = of.key.get(), .change = [&](X509* x) {
             BIGNUM* modulus = nullptr;
             EVP_PKEY_get_bn_param(of.key.get(), OSSL_PKEY_PARAM_RSA_N, &modulus);
             const csp::ossl::Bn owner(modulus);
             csp::Bytes number(static_cast<std::size_t>(BN_num_bytes(modulus)) + 1); // a zero first: it is positive
             BN_bn2bin(modulus, number.data() + 1);
             const csp::Bytes key = csp::der::sequence({csp::der::integer(number), csp::der::integer(exponent)});
             X509_PUBKEY_set0_param(X509_get_X509_PUBKEY(x), OBJ_nid2obj(NID_rsaEncryption), V_ASN1_NULL, nullptr,
                                    static_cast<unsigned char*>(OPENSSL_memdup(key.data(), key.size())),
                                    static_cast<int>(key.size()));
         }});
}

Entity withExponent(const Entity& of, const Entity& issuer, std::uint8_t exponent) {
    return withExponent(of, issuer, csp::Bytes{exponent});
}

class ChainDistrust : public ChainTest {
protected:
    ChainDistrust() { standardChain(); }
    void distrust(const csp::Bytes& der) { add(systemStore("disallowed").get(), der); }

    /// The certificate with its ECDSA value (r, s) written as (r, n - s), which verifies as well.
    static csp::Bytes otherSignature(const Entity& entity) {
        const csp::ossl::X509Ptr copy = pki::decode(entity.der);
        const ASN1_BIT_STRING* held = nullptr;
        X509_get0_signature(&held, nullptr, copy.get());
        const unsigned char* position = held->data;
        ECDSA_SIG* const signature = d2i_ECDSA_SIG(nullptr, &position, held->length);
        BIGNUM* order = nullptr;
        BN_hex2bn(&order, "FFFFFFFF00000000FFFFFFFFFFFFFFFFBCE6FAADA7179E84F3B9CAC2FC632551");
        BN_sub(order, order, ECDSA_SIG_get0_s(signature));
        ECDSA_SIG_set0(signature, BN_dup(ECDSA_SIG_get0_r(signature)), order);
        unsigned char* value = nullptr;
        const int size = i2d_ECDSA_SIG(signature, &value);
        ASN1_BIT_STRING_set(const_cast<ASN1_BIT_STRING*>(held), value, size);
        OPENSSL_free(value);
        ECDSA_SIG_free(signature);
        unsigned char* out = nullptr;
        const int length = i2d_X509(copy.get(), &out);
        csp::Bytes der(out, out + length);
        OPENSSL_free(out);
        return der;
    }
};

TEST_F(ChainDistrust, HoldsForTheCertificateWithItsSignatureWrittenInAnotherWay) {
    const csp::Bytes other = otherSignature(leaf_);
    ASSERT_NE(other, leaf_.der);
    EXPECT_EQ(status(other), 0U);
    distrust(leaf_.der);
    EXPECT_EQ(status(other), capi::CERT_TRUST_IS_EXPLICIT_DISTRUST);
}

TEST_F(ChainDistrust, HoldsForTheKey) {
    distrust(ca_.der);
    const Entity again = pki::make({.subject = "Intermediate again",
                                    .issuer = &root_,
                                    .serial = 90,
                                    .extensions = {{NID_basic_constraints, "critical,CA:TRUE"}},
                                    .reuseKey = ca_.key.get()});
    know(again);
    EXPECT_EQ(elementErrors(chainOf(pki::make({.subject = "Below", .issuer = &again, .serial = 5}).der)),
              (std::vector<DWORD>{0, capi::CERT_TRUST_IS_EXPLICIT_DISTRUST, 0}));
}

TEST_F(ChainDistrust, HoldsForTheKeyOfRsaUnderTheNameOfRsassaPss) {
    const Entity person = pki::make({.subject = "Person", .issuer = &ca_, .kind = pki::KeyKind::Rsa, .serial = 5});
    const Entity again = pki::make(
        {.subject = "Person again", .issuer = &ca_, .serial = 6, .reuseKey = person.key.get(), .change = [](X509* x) {
             X509_PUBKEY_set0_param(X509_get_X509_PUBKEY(x), OBJ_nid2obj(NID_rsassaPss), V_ASN1_UNDEF, nullptr, nullptr,
                                    0);
         }});
    EXPECT_EQ(status(again.der), 0U);
    distrust(person.der);
    EXPECT_EQ(status(again.der), capi::CERT_TRUST_IS_EXPLICIT_DISTRUST);
}

TEST_F(ChainDistrust, HoldsForTheKeyWithItsPointCompressed) {
    const csp::ossl::Pkey compressed(EVP_PKEY_dup(leaf_.key.get()));
    EVP_PKEY_set_utf8_string_param(compressed.get(), OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT, "compressed");
    const Entity again =
        pki::make({.subject = "Leaf again", .issuer = &ca_, .serial = 6, .reuseKey = compressed.get()});
    ASSERT_EQ(ASN1_STRING_length(X509_get0_pubkey_bitstr(again.certificate.get())), 33);
    EXPECT_EQ(status(again.der), 0U);
    distrust(leaf_.der);
    EXPECT_EQ(status(again.der), capi::CERT_TRUST_IS_EXPLICIT_DISTRUST);
}

TEST_F(ChainDistrust, HoldsForTheNegativeOfThePoint) {
    const csp::ossl::Pkey compressed(EVP_PKEY_dup(leaf_.key.get()));
    EVP_PKEY_set_utf8_string_param(compressed.get(), OSSL_PKEY_PARAM_EC_POINT_CONVERSION_FORMAT, "compressed");
    const auto negative = [](X509* x) {
        const ASN1_BIT_STRING* const bits = X509_get0_pubkey_bitstr(x);
        auto* const point = static_cast<unsigned char*>(
            OPENSSL_memdup(ASN1_STRING_get0_data(bits), static_cast<std::size_t>(ASN1_STRING_length(bits))));
        point[0] ^= 1U; // the other y of the same x
        X509_PUBKEY_set0_param(X509_get_X509_PUBKEY(x), OBJ_nid2obj(NID_X9_62_id_ecPublicKey), V_ASN1_OBJECT,
                               OBJ_nid2obj(NID_X9_62_prime256v1), point, ASN1_STRING_length(bits));
    };
    const Entity again = pki::make(
        {.subject = "Leaf again", .issuer = &ca_, .serial = 6, .reuseKey = compressed.get(), .change = negative});
    EXPECT_EQ(status(again.der), 0U);
    distrust(leaf_.der);
    EXPECT_EQ(status(again.der), capi::CERT_TRUST_IS_EXPLICIT_DISTRUST);
}

TEST_F(ChainDistrust, HoldsForTheModulusWithAnotherExponent) {
    const Entity person = pki::make({.subject = "Person", .issuer = &ca_, .kind = pki::KeyKind::Rsa, .serial = 5});
    const Entity again = withExponent(person, ca_, 17);
    EXPECT_EQ(status(again.der), 0U);
    distrust(person.der);
    EXPECT_EQ(status(again.der), capi::CERT_TRUST_IS_EXPLICIT_DISTRUST);
}

TEST_F(ChainDistrust, HoldsForTheKeyOfGostUnderTheNameOfTheOlderAlgorithm) {
    const Entity person = pki::make({.subject = "Person", .issuer = &ca_, .kind = pki::KeyKind::Gost256, .serial = 5});
    distrust(person.der);
    for (const bool longForm : {false, true}) { // of the length of the OCTET STRING around the point
        const auto older = [&](X509* x) {
            const ASN1_BIT_STRING* const bits = X509_get0_pubkey_bitstr(x);
            csp::Bytes octets(bits->data, bits->data + bits->length);
            if (longForm) {
                octets.insert(octets.begin() + 1, 0x81);
            }
            auto* const key = static_cast<unsigned char*>(OPENSSL_memdup(octets.data(), octets.size()));
            ASN1_STRING* const parameters = ASN1_STRING_new();
            const std::string_view set("\x30\x12\x06\x07\x2A\x85\x03\x02\x02\x23\x01" // CryptoPro-A
                                       "\x06\x07\x2A\x85\x03\x02\x02\x1E\x01");
            ASN1_STRING_set(parameters, set.data(), static_cast<int>(set.size()));
            X509_PUBKEY_set0_param(X509_get_X509_PUBKEY(x), OBJ_nid2obj(NID_id_GostR3410_2001), V_ASN1_SEQUENCE,
                                   parameters, key, static_cast<int>(octets.size()));
        };
        const Entity again = pki::make(
            {.subject = "Person again", .issuer = &ca_, .serial = 6, .reuseKey = person.key.get(), .change = older});
        EXPECT_NE(status(again.der) & capi::CERT_TRUST_IS_EXPLICIT_DISTRUST, 0U) << longForm;
    }
}

TEST_F(ChainDistrust, HoldsForIssuerAndSerialNumber) {
    distrust(leaf_.der);
    const Entity same = pki::make({.subject = "Another", .issuer = &ca_, .serial = 77});
    EXPECT_EQ(status(same.der), capi::CERT_TRUST_IS_EXPLICIT_DISTRUST);
    const Entity next = pki::make({.subject = "Another", .issuer = &ca_, .serial = 78});
    EXPECT_EQ(status(next.der), 0U);
}

TEST_F(ChainDistrust, RefusesToJudgeWhenAnEntryIsDamaged) {
    distrust(ca_.der);
    EXPECT_EQ(refusal(leaf_.der), 0U);
    write(files("disallowed").front(), "-----BEGIN CERTIFICATE-----\nAAAA\n");
    EXPECT_EQ(refusal(leaf_.der), capi::ERROR_INVALID_DATA);
}

TEST_F(ChainDistrust, RefusesToJudgeWhenAnEntryIsNotAsTheServiceWritesIt) {
    write(folder("disallowed") / "bad-authority.cer", view(ca_.der));
    EXPECT_EQ(refusal(leaf_.der), capi::ERROR_INVALID_DATA);
}

TEST_F(ChainDistrust, RefusesToJudgeWhenTheStoreIsNotAFolder) {
    write(folder("disallowed"), "not a folder");
    EXPECT_NE(refusal(leaf_.der), 0U);
    std::filesystem::remove(folder("disallowed"));
    std::filesystem::create_symlink(folder("nowhere"), folder("disallowed"));
    EXPECT_EQ(refusal(leaf_.der), capi::ERROR_INVALID_DATA);
}

/// Takes the rights of the superuser away for a moment: another user owns the data directory then.
class WithoutPrivileges {
public:
    explicit WithoutPrivileges(const std::filesystem::path& home) : privileged_(geteuid() == 0) {
        constexpr uid_t nobody = 65534;
        if (privileged_) {
            own(home, nobody);
            for (const auto& entry : std::filesystem::recursive_directory_iterator(home)) {
                own(entry.path(), nobody);
            }
            EXPECT_EQ(seteuid(nobody), 0);
        }
    }
    WithoutPrivileges(const WithoutPrivileges&) = delete;
    WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;
    ~WithoutPrivileges() {
        if (privileged_) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }

private:
    static void own(const std::filesystem::path& path, uid_t user) {
        EXPECT_EQ(lchown(path.c_str(), user, static_cast<gid_t>(-1)), 0) << path;
    }
    bool privileged_;
};

TEST_F(ChainDistrust, RefusesToJudgeWithoutPermissionToReadIt) {
    distrust(ca_.der);
    const std::filesystem::path entry = files("disallowed").front();
    const WithoutPrivileges user(home_);
    const auto permit = [](const std::filesystem::path& path, std::filesystem::perms permissions) {
        std::filesystem::permissions(path, permissions);
    };
    EXPECT_EQ(refusal(leaf_.der), 0U);
    permit(entry, std::filesystem::perms::none);
    EXPECT_NE(refusal(leaf_.der), 0U) << "an entry";
    permit(entry, std::filesystem::perms::owner_read);
    permit(folder("disallowed"), std::filesystem::perms::none);
    EXPECT_NE(refusal(leaf_.der), 0U) << "the folder";
    permit(folder("disallowed"), std::filesystem::perms::owner_all);
    EXPECT_EQ(refusal(leaf_.der), 0U);
}

class WeakChain : public ChainDistrust {
protected:
    static constexpr DWORD weak = capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID | capi::CERT_TRUST_HAS_WEAK_SIGNATURE;
};

TEST_F(WeakChain, RefusesBrokenDigests) {
    for (const EVP_MD* const digest : {EVP_md5(), EVP_md4()}) {
        static const Entity rsaRoot = pki::root("RSA", pki::KeyKind::Rsa);
        trust(rsaRoot);
        const Entity person = pki::make({.subject = "Person", .issuer = &rsaRoot, .serial = 5, .digest = EVP_sha1()});
        EXPECT_EQ(status(person.der), 0U) << "SHA-1 is for the caller to judge";
        try {
            const Entity bad = pki::make({.subject = "Bad", .issuer = &rsaRoot, .serial = 6, .digest = digest});
            EXPECT_EQ(elementErrors(chainOf(bad.der)), (std::vector<DWORD>{weak, 0}));
        } catch (const std::runtime_error&) { // no MD4 without the legacy provider
            EXPECT_EQ(EVP_MD_get_type(digest), NID_md4);
        }
    }
}

TEST_F(WeakChain, RefusesShortRsaKeysOfAnyElement) {
    const csp::ossl::Pkey shortKey(EVP_RSA_gen(1016));
    const csp::ossl::Pkey enough(EVP_RSA_gen(1024));
    const Entity bad = pki::make({.subject = "Bad", .issuer = &ca_, .serial = 6, .reuseKey = shortKey.get()});
    EXPECT_EQ(elementErrors(chainOf(bad.der)), (std::vector<DWORD>{weak, 0, 0}));
    const Entity fair = pki::make({.subject = "Fair", .issuer = &ca_, .serial = 7, .reuseKey = enough.get()});
    EXPECT_EQ(status(fair.der), 0U);
    const Entity anchor = pki::make({.subject = "Short anchor",
                                     .extensions = {{NID_basic_constraints, "critical,CA:TRUE"}},
                                     .reuseKey = shortKey.get()});
    trust(anchor);
    EXPECT_EQ(elementErrors(chainOf(pki::make({.subject = "Below", .issuer = &anchor, .serial = 5}).der)),
              (std::vector<DWORD>{0, weak}));
}

/// Parameters of a DSA key with a modulus of so many bits: SEQUENCE { p, q, g }, and the INTEGER g, which is the public
/// key of the private key 1. OpenSSL makes no small keys.
std::pair<csp::Bytes, csp::Bytes> dsaKey(int bits) {
    using Context = std::unique_ptr<EVP_PKEY_CTX, csp::ossl::Deleter<EVP_PKEY_CTX_free>>;
    const Context maker(EVP_PKEY_CTX_new_from_name(nullptr, "DSA", nullptr));
    EVP_PKEY_paramgen_init(maker.get());
    EVP_PKEY_CTX_set_dsa_paramgen_type(maker.get(), "fips186_2");
    EVP_PKEY_CTX_set_dsa_paramgen_bits(maker.get(), bits);
    EVP_PKEY_CTX_set_dsa_paramgen_q_bits(maker.get(), 160);
    EVP_PKEY* made = nullptr;
    EVP_PKEY_paramgen(maker.get(), &made);
    const csp::ossl::Pkey parameters(made);
    const auto number = [&](const char* name) {
        BIGNUM* value = nullptr;
        EVP_PKEY_get_bn_param(parameters.get(), name, &value);
        const csp::ossl::Bn owner(value);
        csp::Bytes octets(static_cast<std::size_t>(BN_num_bytes(value)) + 1); // a zero first: it is positive
        BN_bn2bin(value, octets.data() + 1);
        return csp::der::integer(octets);
    };
    const csp::Bytes generator = number(OSSL_PKEY_PARAM_FFC_G);
    return {csp::der::sequence({number(OSSL_PKEY_PARAM_FFC_P), number(OSSL_PKEY_PARAM_FFC_Q), generator}), generator};
}

TEST_F(WeakChain, RefusesShortDsaKeys) {
    const auto withKeyOf = [&](int bits) {
        return pki::make({.subject = "Person", .issuer = &ca_, .serial = 6, .change = [&](X509* certificate) {
                              const auto [parameters, key] = dsaKey(bits);
                              ASN1_STRING* const sequence = ASN1_STRING_new();
                              ASN1_STRING_set(sequence, parameters.data(), static_cast<int>(parameters.size()));
                              X509_PUBKEY_set0_param(
                                  X509_get_X509_PUBKEY(certificate), OBJ_nid2obj(NID_dsa), V_ASN1_SEQUENCE, sequence,
                                  static_cast<unsigned char*>(OPENSSL_memdup(key.data(), key.size())),
                                  static_cast<int>(key.size()));
                          }});
    };
    EXPECT_EQ(elementErrors(chainOf(withKeyOf(512).der)), (std::vector<DWORD>{weak, 0, 0}));
    EXPECT_EQ(status(withKeyOf(1024).der), 0U);
}

TEST_F(WeakChain, RefusesSmallCurves) {
    for (const char* const name : {"secp112r1", "secp128r1"}) {
        const csp::ossl::Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", name));
        const Entity bad = pki::make({.subject = "Bad", .issuer = &ca_, .serial = 6, .reuseKey = key.get()});
        EXPECT_EQ(elementErrors(chainOf(bad.der)), (std::vector<DWORD>{weak, 0, 0})) << name;
    }
    const csp::ossl::Pkey enough(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "secp160r1"));
    EXPECT_EQ(status(pki::make({.subject = "Fair", .issuer = &ca_, .serial = 7, .reuseKey = enough.get()}).der), 0U);
}

TEST_F(WeakChain, RefusesExponentsThatAnybodyCanSignWith) {
    const Entity person = pki::make({.subject = "Person", .issuer = &ca_, .kind = pki::KeyKind::Rsa, .serial = 5});
    csp::Bytes longest(33); // a zero first: it is positive
    longest[1] = 0x80;
    longest.back() = 1;
    csp::Bytes longer = longest;
    longer[0] = 1;
    for (const csp::Bytes& exponent : {csp::Bytes{1}, csp::Bytes{4}, longer}) {
        EXPECT_EQ(elementErrors(chainOf(withExponent(person, ca_, exponent).der)), (std::vector<DWORD>{weak, 0, 0}))
            << exponent.size();
    }
    EXPECT_EQ(status(withExponent(person, ca_, 3).der), 0U);
    EXPECT_EQ(status(withExponent(person, ca_, longest).der), 0U) << "256 bits";
}

TEST_F(WeakChain, RefusesCurvesWithoutAName) {
    const csp::ossl::Pkey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    EVP_PKEY_set_utf8_string_param(key.get(), OSSL_PKEY_PARAM_EC_ENCODING, "explicit");
    const Entity bad = pki::make({.subject = "Bad", .issuer = &ca_, .serial = 6, .reuseKey = key.get()});
    EXPECT_EQ(elementErrors(chainOf(bad.der)), (std::vector<DWORD>{capi::CERT_TRUST_IS_NOT_SIGNATURE_VALID, 0, 0}));
}

TEST_F(WeakChain, MayBeIgnoredAsWeakButNotAsForged) {
    const csp::ossl::Pkey shortKey(EVP_RSA_gen(1016));
    const Chain chain =
        chainOf(pki::make({.subject = "Bad", .issuer = &ca_, .serial = 6, .reuseKey = shortKey.get()}).der);
    EXPECT_EQ(policy(chain, 0x08000000), capi::TRUST_E_CERT_SIGNATURE);
}

} // namespace
