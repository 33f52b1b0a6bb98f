// Certificate contexts, their properties, extensions, usages and names.

#include "samples.hpp"

#include <cstring>

namespace conformance {

namespace {

using namespace capi;

class CertificateContext : public ConformanceTest {
protected:
    static Fetch property(const Certificate& certificate, DWORD id) {
        return [&certificate, id](void* buffer, DWORD* size) {
            return api().CertGetCertificateContextProperty(certificate.get(), id, buffer, size) != 0;
        };
    }
    static bool create(const Bytes& der) {
        return Certificate(api().CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), sizeOf(der))).get() !=
               nullptr;
    }
    static std::wstring nameText(CERT_NAME_BLOB& name, DWORD form) {
        const DWORD length = api().CertNameToStrW(X509_ASN_ENCODING, &name, form, nullptr, 0);
        std::wstring text(length, L'?');
        EXPECT_EQ(api().CertNameToStrW(X509_ASN_ENCODING, &name, form, text.data(), length), length);
        EXPECT_EQ(text.back(), L'\0') << "the length counts the zero";
        text.pop_back();
        return text;
    }
    Certificate leaf_ = samples::contextOf(samples::leaf());
    DWORD size_ = 0;
};

constexpr DWORD ownProperty = 0x00008123; // of the range left to applications
constexpr DWORD noEncoding = 0;

} // namespace

TEST_F(CertificateContext, RefusesNullPointersAndEncodings) {
    const Bytes& der = samples::leaf();
    EXPECT_REFUSED(api().CertCreateCertificateContext(X509_ASN_ENCODING, nullptr, sizeOf(der)), BAD_ARGUMENT);
    EXPECT_REFUSED(api().CertCreateCertificateContext(noEncoding, der.data(), sizeOf(der)), BAD_ARGUMENT);
}

TEST_F(CertificateContext, RefusesWhatIsNoCertificate) {
    EXPECT_FALSE(create(fromHex("3003020101")));
    EXPECT_FALSE(create(octets("certificate")));
}

TEST_F(CertificateContext, RefusesATruncatedCertificate) {
    for (const std::size_t size : {std::size_t{1}, samples::leaf().size() / 2, samples::leaf().size() - 1}) {
        EXPECT_FALSE(create(Bytes(samples::leaf().begin(), samples::leaf().begin() + static_cast<long>(size)))) << size;
    }
}

TEST_F(CertificateContext, HoldsTheEncodedCertificate) {
    const CERT_CONTEXT& context = *leaf_.get();
    EXPECT_EQ(Bytes(context.pbCertEncoded, context.pbCertEncoded + context.cbCertEncoded), samples::leaf());
    EXPECT_NE(context.dwCertEncodingType & X509_ASN_ENCODING, 0U);
}

TEST_F(CertificateContext, DecodesTheCertificate) {
    const CERT_INFO& info = *leaf_.get()->pCertInfo;
    EXPECT_EQ(info.dwVersion, 2U);
    EXPECT_EQ(bytesOf(info.SerialNumber), (Bytes{0x02, 0x10})) << "least significant octet first";
    EXPECT_STREQ(info.SignatureAlgorithm.pszObjId, "1.2.840.113549.1.1.11");
    EXPECT_STREQ(info.SubjectPublicKeyInfo.Algorithm.pszObjId, "1.2.840.113549.1.1.1");
    EXPECT_EQ(bytesOf(info.SubjectPublicKeyInfo.Algorithm.Parameters), fromHex("0500"));
    EXPECT_EQ(info.NotBefore.dwHighDateTime, 0x01D5C036U);
    EXPECT_EQ(info.NotBefore.dwLowDateTime, 0x69050000U);
    EXPECT_EQ(info.cExtension, 6U);
    const Certificate issuer = samples::contextOf(samples::intermediate());
    EXPECT_EQ(bytesOf(info.Issuer), bytesOf(issuer.get()->pCertInfo->Subject));
}

TEST_F(CertificateContext, LivesUntilItsLastDuplicateGoes) {
    Certificate copy(api().CertDuplicateCertificateContext(leaf_.get()));
    EXPECT_EQ(copy.get(), leaf_.get());
    leaf_ = Certificate();
    EXPECT_EQ(fetch(property(copy, CERT_SHA1_HASH_PROP_ID)), fromHex("78937fc102fc6f9d41fde9936ee232d351d73c0c"));
}

TEST_F(CertificateContext, IsFreedWithoutOneToFree) {
    EXPECT_ACCEPTED(api().CertFreeCertificateContext(nullptr));
}

TEST_F(CertificateContext, RefusesANullContext) {
    const CRYPT_DATA_BLOB blob{};
    EXPECT_REFUSED(api().CertGetCertificateContextProperty(nullptr, CERT_SHA1_HASH_PROP_ID, nullptr, &size_),
                   BAD_ARGUMENT);
    EXPECT_REFUSED(api().CertSetCertificateContextProperty(nullptr, CERT_FRIENDLY_NAME_PROP_ID, 0, &blob),
                   BAD_ARGUMENT);
    EXPECT_REFUSED(api().CertGetEnhancedKeyUsage(nullptr, 0, nullptr, &size_), BAD_ARGUMENT);
}

TEST_F(CertificateContext, RefusesAFreedContext) {
    const PCCERT_CONTEXT stale = leaf_.release();
    EXPECT_ACCEPTED(api().CertFreeCertificateContext(stale));
    EXPECT_REFUSED(api().CertGetCertificateContextProperty(stale, CERT_SHA1_HASH_PROP_ID, nullptr, &size_),
                   BAD_ARGUMENT, ERROR_INVALID_HANDLE);
    EXPECT_REFUSED(api().CertFreeCertificateContext(stale), BAD_ARGUMENT, ERROR_INVALID_HANDLE);
}

TEST_F(CertificateContext, HasItsThumbprint) {
    EXPECT_EQ(toHex(walkSizes(property(leaf_, CERT_SHA1_HASH_PROP_ID))), "78937fc102fc6f9d41fde9936ee232d351d73c0c");
}

TEST_F(CertificateContext, HasItsKeyIdentifier) {
    EXPECT_EQ(toHex(walkSizes(property(leaf_, CERT_KEY_IDENTIFIER_PROP_ID))),
              "f508f1ea4d080f1fcb8f81fc6f27aa549b32912f");
}

TEST_F(CertificateContext, HasNoPropertyThatNobodySet) {
    for (const DWORD id : {CERT_FRIENDLY_NAME_PROP_ID, CERT_KEY_PROV_INFO_PROP_ID, CERT_KEY_CONTEXT_PROP_ID,
                           CERT_KEY_PROV_HANDLE_PROP_ID, ownProperty}) {
        EXPECT_REFUSED(api().CertGetCertificateContextProperty(leaf_.get(), id, nullptr, &size_), CRYPT_E_NOT_FOUND)
            << id;
    }
}

TEST_F(CertificateContext, KeepsAPropertyUntilItIsDeleted) {
    Bytes value = octets("a value");
    const CRYPT_DATA_BLOB blob{sizeOf(value), value.data()};
    EXPECT_ACCEPTED(api().CertSetCertificateContextProperty(leaf_.get(), ownProperty, 0, &blob));
    EXPECT_EQ(walkSizes(property(leaf_, ownProperty)), value);
    EXPECT_ACCEPTED(api().CertSetCertificateContextProperty(leaf_.get(), ownProperty, 0, nullptr));
    EXPECT_REFUSED(api().CertGetCertificateContextProperty(leaf_.get(), ownProperty, nullptr, &size_),
                   CRYPT_E_NOT_FOUND);
}

TEST_F(CertificateContext, KeepsWhereItsPrivateKeyLies) {
    std::wstring container = L"container";
    std::wstring provider = L"provider";
    CRYPT_KEY_PROV_INFO info{container.data(), provider.data(), PROV_RSA_AES, 0, 0, nullptr, AT_SIGNATURE};
    EXPECT_ACCEPTED(api().CertSetCertificateContextProperty(leaf_.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
    container = L"changed since";
    const Bytes kept = walkSizes(property(leaf_, CERT_KEY_PROV_INFO_PROP_ID));
    const auto& read = as<CRYPT_KEY_PROV_INFO>(kept);
    EXPECT_STREQ(read.pwszContainerName, L"container");
    EXPECT_STREQ(read.pwszProvName, L"provider");
    EXPECT_EQ(read.dwProvType, PROV_RSA_AES);
    EXPECT_EQ(read.dwKeySpec, AT_SIGNATURE);
}

TEST_F(CertificateContext, RefusesToChangeItsThumbprint) {
    const CRYPT_DATA_BLOB blob{};
    EXPECT_REFUSED(api().CertSetCertificateContextProperty(leaf_.get(), 0, 0, &blob), BAD_ARGUMENT);
    EXPECT_REFUSED(api().CertGetCertificateContextProperty(leaf_.get(), 0, nullptr, &size_), BAD_ARGUMENT);
}

TEST_F(CertificateContext, HasNoPrivateKeyWithoutAProperty) {
    unsigned long context = 0;
    DWORD keySpec = 0;
    BOOL frees = 0;
    EXPECT_REFUSED(api().CryptAcquireCertificatePrivateKey(leaf_.get(), CRYPT_ACQUIRE_SILENT_FLAG, nullptr, &context,
                                                           &keySpec, &frees),
                   CRYPT_E_NO_KEY_PROPERTY);
    EXPECT_EQ(context, 0U);
    EXPECT_REFUSED(api().CryptAcquireCertificatePrivateKey(nullptr, 0, nullptr, &context, &keySpec, &frees),
                   BAD_ARGUMENT);
    EXPECT_REFUSED(api().CryptAcquireCertificatePrivateKey(leaf_.get(), 0, nullptr, nullptr, &keySpec, &frees),
                   BAD_ARGUMENT);
}

TEST_F(CertificateContext, TellsItsEnhancedKeyUsage) {
    const Bytes block = walkSizes([&](void* buffer, DWORD* size) {
        return api().CertGetEnhancedKeyUsage(leaf_.get(), 0, static_cast<CERT_ENHKEY_USAGE*>(buffer), size) != 0;
    });
    const auto& usage = as<CERT_ENHKEY_USAGE>(block);
    ASSERT_EQ(usage.cUsageIdentifier, 2U);
    EXPECT_STREQ(usage.rgpszUsageIdentifier[0], "1.3.6.1.5.5.7.3.2");
    EXPECT_STREQ(usage.rgpszUsageIdentifier[1], "1.3.6.1.5.5.7.3.4");
}

TEST_F(CertificateContext, WithoutEnhancedKeyUsageServesAnyPurpose) {
    const Certificate root = samples::contextOf(samples::root());
    const Bytes block = fetch([&](void* buffer, DWORD* size) {
        return api().CertGetEnhancedKeyUsage(root.get(), 0, static_cast<CERT_ENHKEY_USAGE*>(buffer), size) != 0;
    });
    EXPECT_EQ(api().GetLastError(), CRYPT_E_NOT_FOUND) << "that is how an empty list says any";
    EXPECT_EQ(as<CERT_ENHKEY_USAGE>(block).cUsageIdentifier, 0U);
}

TEST_F(CertificateContext, FindsExtensions) {
    const CERT_INFO& info = *leaf_.get()->pCertInfo;
    const CERT_EXTENSION* const found = api().CertFindExtension(szOID_KEY_USAGE, info.cExtension, info.rgExtension);
    ASSERT_NE(found, nullptr);
    EXPECT_STREQ(found->pszObjId, szOID_KEY_USAGE);
    EXPECT_NE(found->fCritical, 0);
    EXPECT_EQ(bytesOf(found->Value), fromHex("03020780"));
    EXPECT_REFUSED(api().CertFindExtension("1.2.3", info.cExtension, info.rgExtension), CRYPT_E_NOT_FOUND, 0);
    EXPECT_REFUSED(api().CertFindExtension(nullptr, info.cExtension, info.rgExtension), BAD_ARGUMENT);
}

TEST_F(CertificateContext, TellsItsSubjectAsText) {
    CERT_NAME_BLOB& subject = leaf_.get()->pCertInfo->Subject;
    EXPECT_EQ(nameText(subject, CERT_SIMPLE_NAME_STR), L"RU, Conformance, Tests, Conformance Leaf");
    EXPECT_EQ(nameText(subject, CERT_X500_NAME_STR), L"C=RU, O=Conformance, OU=Tests, CN=Conformance Leaf");
    EXPECT_EQ(nameText(subject, CERT_X500_NAME_STR | CERT_NAME_STR_REVERSE_FLAG),
              L"CN=Conformance Leaf, OU=Tests, O=Conformance, C=RU");
    EXPECT_EQ(nameText(subject, CERT_OID_NAME_STR),
              L"2.5.4.6=RU, 2.5.4.10=Conformance, 2.5.4.11=Tests, 2.5.4.3=Conformance Leaf");
    EXPECT_EQ(nameText(subject, CERT_X500_NAME_STR | CERT_NAME_STR_SEMICOLON_FLAG),
              L"C=RU; O=Conformance; OU=Tests; CN=Conformance Leaf");
}

TEST_F(CertificateContext, CutsATextThatDoesNotFit) {
    wchar_t text[4] = {L'?', L'?', L'?', L'?'};
    CERT_NAME_BLOB& subject = leaf_.get()->pCertInfo->Subject;
    EXPECT_LE(api().CertNameToStrW(X509_ASN_ENCODING, &subject, CERT_SIMPLE_NAME_STR, text, 3), 3U);
    EXPECT_STREQ(text, L"RU");
    EXPECT_EQ(text[3], L'?');
}

} // namespace conformance
