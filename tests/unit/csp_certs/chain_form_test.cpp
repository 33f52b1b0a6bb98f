// The form of certificates and names in a chain (docs/trust-policy.md).

#include "chain_fixture.hpp"

#include <chrono>

namespace {

class ChainForm : public ChainTest {
protected:
    ChainForm() { standardChain(); }
    /// Status of a certificate under the intermediate.
    DWORD with(std::vector<std::pair<int, std::string>> extensions, std::function<void(X509*)> change = {}) {
        return status(pki::make({.subject = "Formed",
                                 .issuer = &ca_,
                                 .serial = 5,
                                 .extensions = std::move(extensions),
                                 .change = std::move(change)})
                          .der);
    }
    /// Status of a certificate under an authority with name constraints.
    DWORD underConstraints(const std::string& constraints, const std::string& names) {
        const Entity limited = pki::make(
            {.subject = "Limited",
             .issuer = &root_,
             .serial = 40 + ++limited_,
             .extensions = {{NID_basic_constraints, "critical,CA:TRUE"}, {NID_name_constraints, constraints}}});
        know(limited);
        return status(
            pki::make(
                {.subject = "Named", .issuer = &limited, .serial = 5, .extensions = {{NID_subject_alt_name, names}}})
                .der);
    }
    static void addRaw(X509* certificate, const char* oid, const std::string& value, bool critical) {
        ASN1_OBJECT* const object = OBJ_txt2obj(oid, 1);
        ASN1_OCTET_STRING* const octets = ASN1_OCTET_STRING_new();
        ASN1_OCTET_STRING_set(octets, reinterpret_cast<const unsigned char*>(value.data()),
                              static_cast<int>(value.size()));
        X509_EXTENSION* const extension = X509_EXTENSION_create_by_OBJ(nullptr, object, critical ? 1 : 0, octets);
        X509_add_ext(certificate, extension, -1);
        X509_EXTENSION_free(extension);
        ASN1_OCTET_STRING_free(octets);
        ASN1_OBJECT_free(object);
    }

    static constexpr DWORD badForm = capi::CERT_TRUST_INVALID_EXTENSION;
    static constexpr DWORD badName = capi::CERT_TRUST_HAS_NOT_PERMITTED_NAME_CONSTRAINT;
    int limited_ = 0;
};

TEST_F(ChainForm, RefusesAVersionBeyondThree) {
    EXPECT_EQ(with({}, [](X509* certificate) { X509_set_version(certificate, 3); }), badForm);
}

TEST_F(ChainForm, RefusesExtensionsBeforeVersionThree) {
    for (const long version : {X509_VERSION_1, X509_VERSION_2}) {
        EXPECT_EQ(with({{NID_key_usage, "digitalSignature"}},
                       [&](X509* certificate) { X509_set_version(certificate, version); }),
                  badForm);
        EXPECT_EQ(with({}, [&](X509* certificate) { X509_set_version(certificate, version); }), 0U);
    }
}

TEST_F(ChainForm, RefusesUniqueIdentifiersInVersionOne) {
    const Entity plain = pki::make({.subject = "Plain", .issuer = &ca_, .serial = 5, .change = [](X509* certificate) {
                                        X509_set_version(certificate, X509_VERSION_1);
                                    }});
    EXPECT_EQ(status(plain.der), 0U);
    // OpenSSL has no function that sets one: the signed part is put together by hand.
    const csp::Bytes identifier{0x81, 0x02, 0x00, 0x01};
    unsigned char* out = nullptr;
    const int size = i2d_re_X509_tbs(plain.certificate.get(), &out);
    csp::Bytes content(out + 3, out + size); // 30 81 length
    ASSERT_EQ(out[1], 0x81);
    OPENSSL_free(out);
    content.insert(content.end(), identifier.begin(), identifier.end());
    csp::Bytes signedPart{0x30, 0x81, static_cast<std::uint8_t>(content.size())};
    signedPart.insert(signedPart.end(), content.begin(), content.end());
    csp::Bytes value(80);
    std::size_t length = value.size();
    EVP_MD_CTX* const context = EVP_MD_CTX_new();
    EVP_DigestSignInit(context, nullptr, EVP_sha256(), nullptr, ca_.key.get());
    EVP_DigestSign(context, value.data(), &length, signedPart.data(), signedPart.size());
    EVP_MD_CTX_free(context);
    csp::Bytes rest{0x30, 0x0A, 0x06, 0x08, 0x2A, 0x86, 0x48,
                    0xCE, 0x3D, 0x04, 0x03, 0x02, 0x03, static_cast<std::uint8_t>(length + 1),
                    0x00};
    rest.insert(rest.end(), value.begin(), value.begin() + static_cast<std::ptrdiff_t>(length));
    const std::size_t whole = signedPart.size() + rest.size();
    csp::Bytes der{0x30, 0x82, static_cast<std::uint8_t>(whole >> 8U), static_cast<std::uint8_t>(whole)};
    if (whole < 256) {
        der = {0x30, 0x81, static_cast<std::uint8_t>(whole)};
    }
    der.insert(der.end(), signedPart.begin(), signedPart.end());
    der.insert(der.end(), rest.begin(), rest.end());
    EXPECT_EQ(status(der), badForm);
}

TEST_F(ChainForm, HoldsThroughTheSecondOfNotAfter) {
    const std::time_t now = std::time(nullptr);
    const Entity person =
        pki::make({.subject = "Person", .issuer = &ca_, .serial = 5, .notBefore = now - 1000, .notAfter = now - 100});
    time_ = now - 100;
    EXPECT_EQ(status(person.der), 0U);
    time_ = now - 99;
    EXPECT_EQ(status(person.der), capi::CERT_TRUST_IS_NOT_TIME_VALID);
    time_ = now - 1000;
    EXPECT_EQ(status(person.der), 0U);
    time_ = now - 1001;
    EXPECT_EQ(status(person.der), capi::CERT_TRUST_IS_NOT_TIME_VALID);
}

TEST_F(ChainForm, RefusesACriticalPolicyWithAnUnknownQualifier) {
    // SEQUENCE { SEQUENCE { OID 1.2.3, SEQUENCE { SEQUENCE { OID 1.2.4, NULL } } } }
    const std::string policies("\x30\x10\x30\x0E\x06\x02\x2A\x03\x30\x08\x30\x06\x06\x02\x2A\x04\x05\x00", 18);
    EXPECT_EQ(with({}, [&](X509* certificate) { addRaw(certificate, "2.5.29.32", policies, true); }),
              capi::CERT_TRUST_HAS_NOT_SUPPORTED_CRITICAL_EXT);
    EXPECT_EQ(with({}, [&](X509* certificate) { addRaw(certificate, "2.5.29.32", policies, false); }), 0U);
    EXPECT_EQ(with({{NID_certificate_policies, "critical,1.2.3"}}), 0U);
}

TEST_F(ChainForm, RefusesAnExtensionGivenTwice) {
    const std::string null("\x05\x00", 2);
    EXPECT_EQ(with({}, [&](X509* certificate) { addRaw(certificate, "1.2.3.4.6", null, false); }), 0U);
    EXPECT_EQ(with({},
                   [&](X509* certificate) {
                       addRaw(certificate, "1.2.3.4.6", null, false);
                       addRaw(certificate, "1.2.3.4.6", null, false);
                   }),
              badForm);
}

TEST_F(ChainForm, RefusesKnownExtensionsThatDoNotDecode) {
    const std::string junk("\x04\x01\x00", 3);
    EXPECT_EQ(with({}, [&](X509* certificate) { addRaw(certificate, "1.3.6.1.5.5.7.1.1", junk, false); }), badForm);
    const std::string emptyList("\x30\x00", 2);
    EXPECT_EQ(with({}, [&](X509* certificate) { addRaw(certificate, "2.5.29.32", emptyList, false); }) & badForm,
              badForm);
}

TEST_F(ChainForm, TakesSerialNumbersOfUpToTwentyOctetsOfAnySign) {
    const auto serial = [&](const std::string& decimal) {
        return with({}, [&](X509* certificate) {
            BIGNUM* number = nullptr;
            BN_dec2bn(&number, decimal.c_str());
            BN_to_ASN1_INTEGER(number, X509_get_serialNumber(certificate));
            BN_free(number);
        });
    };
    EXPECT_EQ(serial("0"), 0U);
    EXPECT_EQ(serial("-5"), 0U);
    EXPECT_EQ(serial("730750818665451459101842416358141509827966271487"), 0U);       // 2^159 - 1
    EXPECT_EQ(serial("1461501637330902918203684832716283019655932542976"), badForm); // 2^160
}

TEST_F(ChainForm, TakesMissingKeyIdentifiersAndAnAuthorityThatIsNotMarkedCritical) {
    const Entity plain = pki::make(
        {.subject = "Plain CA", .issuer = &root_, .serial = 30, .extensions = {{NID_basic_constraints, "CA:TRUE"}}});
    know(plain);
    EXPECT_EQ(status(pki::make({.subject = "Below", .issuer = &plain, .serial = 5}).der), 0U);
}

TEST_F(ChainForm, RefusesDnsNamesThatAreNotNames) {
    EXPECT_EQ(with({{NID_subject_alt_name, "DNS:www.example.org"}}), 0U);
    EXPECT_EQ(with({{NID_subject_alt_name, "DNS:*.example.org"}}), 0U);
    for (const char* const name : {"a_b.example.org", "8.8.8.8", "w*.example.org", "*", "a..b", "-a.org", "a b.org"}) {
        EXPECT_EQ(with({{NID_subject_alt_name, std::string("DNS:") + name}}), badForm) << name;
    }
}

TEST_F(ChainForm, RefusesAWildcardThatCoversAnExcludedName) {
    const DWORD excluded = capi::CERT_TRUST_HAS_EXCLUDED_NAME_CONSTRAINT;
    EXPECT_EQ(underConstraints("critical,excluded;DNS:secret.example.org", "DNS:*.example.org"), excluded);
    EXPECT_EQ(underConstraints("critical,excluded;DNS:SECRET.Example.org", "DNS:*.example.org"), excluded);
    EXPECT_EQ(underConstraints("critical,excluded;DNS:deep.secret.example.org", "DNS:*.example.org"), 0U);
    EXPECT_EQ(underConstraints("critical,excluded;DNS:secret.example.com", "DNS:*.example.org"), 0U);
}

TEST_F(ChainForm, RefusesUserInformationInAUriUnderConstraints) {
    EXPECT_EQ(underConstraints("critical,permitted;URI:.example.org", "URI:http://www.example.org/a@b"), 0U);
    EXPECT_EQ(underConstraints("critical,permitted;URI:.example.org", "URI:http://www.example.org:x@evil.com/"),
              badName);
    EXPECT_EQ(underConstraints("critical,permitted;URI:.example.org", "URI:http://www.example.org:8080/"), 0U);
    EXPECT_EQ(underConstraints("critical,permitted;URI:.example.org", "URI:http://www.example.org:80x/"), badName);
    EXPECT_EQ(underConstraints("critical,permitted;DNS:example.org", "URI:http://user@evil.com/"), 0U);
    EXPECT_EQ(underConstraints("critical,permitted;email:example.org", "email:a@b@example.org") & badName, badName);
}

TEST_F(ChainForm, AppliesConstraintsThatAreNotCritical) {
    EXPECT_EQ(underConstraints("permitted;DNS:example.org", "DNS:www.example.org"), 0U);
    EXPECT_EQ(underConstraints("permitted;DNS:example.org", "DNS:www.example.com"), badName);
}

TEST_F(ChainForm, RefusesNameConstraintsThatConstrainNothing) {
    const DWORD bad = capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS;
    EXPECT_EQ(underConstraints("critical,DER:30:00", "DNS:www.example.org") & bad, bad);
    EXPECT_EQ(underConstraints("critical,DER:30:02:A0:00", "DNS:www.example.org") & bad, bad);
    EXPECT_EQ(with({{NID_name_constraints, "critical,permitted;DNS:example.org"}}), bad) << "not an authority";
}

TEST_F(ChainForm, TakesAnEmptySubject) {
    EXPECT_EQ(with({{NID_subject_alt_name, "critical,email:a@example.org"}},
                   [](X509* certificate) {
                       X509_NAME* const none = X509_NAME_new();
                       X509_set_subject_name(certificate, none);
                       X509_NAME_free(none);
                   }),
              0U);
}

TEST_F(ChainForm, ReportsThatConstraintsAreKept) {
    const Entity limited = pki::make({.subject = "Limited",
                                      .issuer = &root_,
                                      .serial = 9,
                                      .extensions = {{NID_basic_constraints, "critical,CA:TRUE"},
                                                     {NID_name_constraints, "critical,permitted;DNS:example.org"}}});
    know(limited);
    const Chain chain = chainOf(pki::make({.subject = "x",
                                           .issuer = &limited,
                                           .serial = 5,
                                           .extensions = {{NID_subject_alt_name, "DNS:a.example.org"}}})
                                    .der);
    EXPECT_NE(chain->rgpChain[0]->rgpElement[0]->TrustStatus.dwInfoStatus & capi::CERT_TRUST_HAS_VALID_NAME_CONSTRAINTS,
              0U);
    EXPECT_EQ(chain->rgpChain[0]->rgpElement[1]->TrustStatus.dwInfoStatus & capi::CERT_TRUST_HAS_VALID_NAME_CONSTRAINTS,
              0U);
}

TEST_F(ChainForm, CallsALimitOnNamesNotAForgedSignature) {
    std::string constraints = "critical";
    std::string names;
    constexpr int count = 1100; // OpenSSL compares at most 2^20 pairs
    for (int i = 0; i < count; ++i) {
        constraints += ",excluded;DNS:x" + std::to_string(i) + ".org";
        names += (i == 0 ? "DNS:n" : ",DNS:n") + std::to_string(i) + ".net";
    }
    EXPECT_EQ(underConstraints(constraints, names), capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS);
}

TEST_F(ChainForm, EndsSoonAmongManyWildcardsAndExcludedNames) {
    constexpr int count = 8000;
    std::string constraints = "critical";
    std::string names;
    for (int i = 0; i < count; ++i) {
        constraints += ",excluded;DNS:x" + std::to_string(i) + ".org";
        names += (i == 0 ? "DNS:*.n" : ",DNS:*.n") + std::to_string(i) + ".net";
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(underConstraints(constraints, names), capi::CERT_TRUST_INVALID_NAME_CONSTRAINTS);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

} // namespace
