// CryptSignHash, CryptVerifySignature, CryptSignAndEncodeCertificate.

#include "providers.hpp"
#include "self_signed.hpp"

namespace conformance {

namespace {

using namespace capi;

class SignatureOf : public ConformanceTest, public testing::WithParamInterface<ProviderKind> {
protected:
    SignatureOf() : made_(GetParam().type, {AT_KEYEXCHANGE, AT_SIGNATURE}) {}
    [[nodiscard]] Hash hashOf(std::string_view text) const {
        Hash hash;
        must(api().CryptCreateHash(made_.context(), GetParam().hash, 0, 0, hash.address()) != 0, "creating a hash");
        must(api().CryptHashData(hash.get(), reinterpret_cast<const BYTE*>(text.data()),
                                 static_cast<DWORD>(text.size()), 0) != 0,
             "hashing");
        return hash;
    }
    static Fetch signing(const Hash& hash, DWORD keySpec) {
        return [&hash, keySpec](void* buffer, DWORD* size) {
            return api().CryptSignHashW(hash.get(), keySpec, nullptr, 0, static_cast<BYTE*>(buffer), size) != 0;
        };
    }
    [[nodiscard]] Key publicKey(DWORD keySpec) const {
        Bytes exported = publicKeyOf(made_.context(), keySpec);
        Key key;
        must(api().CryptImportPublicKeyInfo(made_.context(), X509_ASN_ENCODING,
                                            reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(exported.data()),
                                            key.address()) != 0,
             "importing a public key");
        return key;
    }
    static bool verify(const Hash& hash, const Bytes& signature, const Key& key) {
        return api().CryptVerifySignatureW(hash.get(), signature.data(), sizeOf(signature), key.get(), nullptr, 0) != 0;
    }

    ThrowAway made_;
    DWORD size_ = 0;
    BYTE octet_ = 0;
};

constexpr DWORD unknownFlag = 0x8000;
constexpr DWORD noKeySpec = 7;

} // namespace

TEST_P(SignatureOf, RefusesNullPointers) {
    const Hash hash = hashOf("text");
    const Key key = publicKey(AT_SIGNATURE);
    EXPECT_REFUSED(api().CryptSignHashW(hash.get(), AT_SIGNATURE, nullptr, 0, nullptr, nullptr),
                   ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CryptVerifySignatureW(hash.get(), nullptr, 1, key.get(), nullptr, 0), ERROR_INVALID_PARAMETER);
}

TEST_P(SignatureOf, RefusesWhatIsNoHashOrKey) {
    const Hash hash = hashOf("text");
    const Key key = publicKey(AT_SIGNATURE);
    for (const unsigned long handle : notHandles({made_.context(), key.get()})) {
        EXPECT_REFUSED(api().CryptSignHashW(handle, AT_SIGNATURE, nullptr, 0, nullptr, &size_), BAD_HASH_HANDLE)
            << handle;
        EXPECT_REFUSED(api().CryptVerifySignatureW(handle, &octet_, 1, key.get(), nullptr, 0), BAD_HASH_HANDLE)
            << handle;
    }
    for (const unsigned long handle : notHandles({made_.context(), hash.get()})) {
        EXPECT_REFUSED(api().CryptVerifySignatureW(hash.get(), &octet_, 1, handle, nullptr, 0), BAD_KEY_HANDLE)
            << handle;
    }
}

TEST_P(SignatureOf, RefusesAKeyThatIsNotThereAndUnknownFlags) {
    const Hash hash = hashOf("text");
    const Key key = publicKey(AT_SIGNATURE);
    EXPECT_REFUSED(api().CryptSignHashW(hash.get(), noKeySpec, nullptr, 0, nullptr, &size_), NTE_NO_KEY, NTE_BAD_KEY,
                   NTE_BAD_ALGID);
    EXPECT_REFUSED(api().CryptSignHashW(hash.get(), AT_SIGNATURE, nullptr, unknownFlag, nullptr, &size_),
                   NTE_BAD_FLAGS);
    EXPECT_REFUSED(api().CryptVerifySignatureW(hash.get(), &octet_, 1, key.get(), nullptr, unknownFlag), NTE_BAD_FLAGS);
    const ThrowAway exchangeOnly(GetParam().type, {AT_KEYEXCHANGE});
    Hash other;
    must(api().CryptCreateHash(exchangeOnly.context(), GetParam().hash, 0, 0, other.address()) != 0, "a hash");
    EXPECT_REFUSED(api().CryptSignHashW(other.get(), AT_SIGNATURE, nullptr, 0, nullptr, &size_), NTE_NO_KEY);
}

TEST_P(SignatureOf, WalksTheSizes) {
    const Hash hash = hashOf("text");
    const Bytes signature = walkSizes(signing(hash, AT_SIGNATURE));
    if (GetParam().signatureSize != 0) {
        EXPECT_EQ(signature.size(), GetParam().signatureSize);
    }
}

TEST_P(SignatureOf, IsAcceptedByItsPublicKeyAlone) {
    const Key keys[] = {publicKey(AT_KEYEXCHANGE), publicKey(AT_SIGNATURE)};
    const DWORD specs[] = {AT_KEYEXCHANGE, AT_SIGNATURE};
    for (const std::size_t own : {0U, 1U}) {
        const Bytes signature = fetch(signing(hashOf("text"), specs[own]));
        const Hash again = hashOf("text");
        EXPECT_ACCEPTED(verify(again, signature, keys[own])) << specs[own];
        const Hash further = hashOf("text");
        EXPECT_REFUSED(verify(further, signature, keys[1 - own]), NTE_BAD_SIGNATURE) << specs[own];
    }
}

TEST_P(SignatureOf, IsRefusedForOtherDataOrWhenChanged) {
    const Key key = publicKey(AT_SIGNATURE);
    Bytes signature = fetch(signing(hashOf("text"), AT_SIGNATURE));
    const Hash other = hashOf("tex7");
    EXPECT_REFUSED(verify(other, signature, key), NTE_BAD_SIGNATURE);
    for (const std::size_t at : {std::size_t{0}, signature.size() / 2, signature.size() - 1}) {
        Bytes changed = signature;
        changed[at] ^= 1U;
        const Hash same = hashOf("text");
        EXPECT_REFUSED(verify(same, changed, key), NTE_BAD_SIGNATURE) << at;
    }
    signature.pop_back();
    const Hash same = hashOf("text");
    EXPECT_REFUSED(verify(same, signature, key), NTE_BAD_SIGNATURE);
}

TEST_P(SignatureOf, ClosesItsHash) {
    const Hash hash = hashOf("text");
    EXPECT_FALSE(fetch(signing(hash, AT_SIGNATURE)).empty());
    EXPECT_REFUSED(api().CryptHashData(hash.get(), &octet_, 1, 0), NTE_BAD_HASH_STATE);
}

TEST_P(SignatureOf, CertificateWalksTheSizes) {
    ToBeSigned wanted(made_.context(), AT_SIGNATURE, GetParam());
    const Bytes der = walkSizes([&](void* buffer, DWORD* size) {
        return api().CryptSignAndEncodeCertificate(made_.context(), AT_SIGNATURE, X509_ASN_ENCODING,
                                                   numbered(X509_CERT_TO_BE_SIGNED), wanted.info(), wanted.algorithm(),
                                                   nullptr, static_cast<BYTE*>(buffer), size) != 0;
    });
    const Certificate made(api().CertCreateCertificateContext(X509_ASN_ENCODING, der.data(), sizeOf(der)));
    ASSERT_NE(made.get(), nullptr);
    EXPECT_STREQ(made.get()->pCertInfo->SignatureAlgorithm.pszObjId, GetParam().signatureOid);
    EXPECT_STREQ(made.get()->pCertInfo->SubjectPublicKeyInfo.Algorithm.pszObjId, GetParam().keyOid);
}

TEST_P(SignatureOf, CertificateRefusesBadArguments) {
    ToBeSigned wanted(made_.context(), AT_SIGNATURE, GetParam());
    const auto sign = [&](unsigned long context, DWORD keySpec, const char* type, const void* info,
                          CRYPT_ALGORITHM_IDENTIFIER* algorithm) {
        return api().CryptSignAndEncodeCertificate(context, keySpec, X509_ASN_ENCODING, type, info, algorithm, nullptr,
                                                   nullptr, &size_) != 0;
    };
    const char* const type = numbered(X509_CERT_TO_BE_SIGNED);
    const unsigned long context = made_.context();
    EXPECT_REFUSED(sign(context, AT_SIGNATURE, type, wanted.info(), nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(sign(context, AT_SIGNATURE, type, nullptr, wanted.algorithm()), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(sign(context, AT_SIGNATURE, numbered(9999), wanted.info(), wanted.algorithm()),
                   ERROR_FILE_NOT_FOUND);
    EXPECT_REFUSED(sign(context, noKeySpec, type, wanted.info(), wanted.algorithm()), NTE_NO_KEY, NTE_BAD_KEY);
    for (const unsigned long handle : notHandles({})) {
        EXPECT_REFUSED(sign(handle, AT_SIGNATURE, type, wanted.info(), wanted.algorithm()), BAD_PROVIDER) << handle;
    }
    std::string unknown = "1.2.3.4.5";
    wanted.algorithm()->pszObjId = unknown.data();
    EXPECT_REFUSED(sign(context, AT_SIGNATURE, type, wanted.info(), wanted.algorithm()), CRYPT_E_UNKNOWN_ALGO,
                   NTE_BAD_ALGID);
}

INSTANTIATE_TEST_SUITE_P(Providers, SignatureOf, testing::ValuesIn(offeredKinds()), nameOfType<ProviderKind>);

} // namespace conformance
