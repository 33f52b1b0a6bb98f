// CryptGenKey, CryptGetUserKey, CryptDestroyKey, key parameters, import and export of public keys.

#include "providers.hpp"
#include "samples.hpp"
#include "self_signed.hpp"

namespace conformance {

namespace {

using namespace capi;

class KeyOf : public ConformanceTest, public testing::WithParamInterface<ProviderKind> {
protected:
    [[nodiscard]] static DWORD type() { return GetParam().type; }
    static Key userKey(unsigned long context, DWORD keySpec) {
        Key key;
        must(api().CryptGetUserKey(context, keySpec, key.address()) != 0, "opening a key pair");
        return key;
    }
    static Fetch param(unsigned long key, DWORD number) {
        return [=](void* buffer, DWORD* size) {
            return api().CryptGetKeyParam(key, number, static_cast<BYTE*>(buffer), size, 0) != 0;
        };
    }
    static CERT_PUBLIC_KEY_INFO* info(Bytes& exported) {
        return reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(exported.data());
    }
    static Key import(unsigned long context, Bytes& exported) {
        Key key;
        must(api().CryptImportPublicKeyInfo(context, X509_ASN_ENCODING, info(exported), key.address()) != 0,
             "importing a public key");
        return key;
    }
    BYTE octet_ = 0;
    DWORD size_ = 0;
    Key out_;
};

constexpr DWORD noKeySpec = 7;
constexpr ALG_ID noAlgorithm = 0x8FFF;
constexpr DWORD unknownParam = 999;
constexpr DWORD unknownFlag = 0x8000;

} // namespace

TEST_P(KeyOf, RefusesNullPointers) {
    const ThrowAway made(type(), {AT_KEYEXCHANGE});
    const Key key = userKey(made.context(), AT_KEYEXCHANGE);
    EXPECT_REFUSED(api().CryptGenKey(made.context(), AT_SIGNATURE, 0, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CryptGetUserKey(made.context(), AT_KEYEXCHANGE, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CryptGetKeyParam(key.get(), KP_ALGID, nullptr, nullptr, 0), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CryptSetKeyParam(key.get(), KP_CERTIFICATE, nullptr, 0), ERROR_INVALID_PARAMETER);
}

TEST_P(KeyOf, RefusesWhatIsNoContext) {
    const ThrowAway made(type(), {AT_KEYEXCHANGE});
    const Key key = userKey(made.context(), AT_KEYEXCHANGE);
    for (const unsigned long handle : notHandles({key.get()})) {
        EXPECT_REFUSED(api().CryptGenKey(handle, AT_SIGNATURE, 0, out_.address()), BAD_PROVIDER) << handle;
        EXPECT_REFUSED(api().CryptGetUserKey(handle, AT_KEYEXCHANGE, out_.address()), BAD_PROVIDER) << handle;
        EXPECT_REFUSED(api().CryptExportPublicKeyInfo(handle, AT_KEYEXCHANGE, X509_ASN_ENCODING, nullptr, &size_),
                       BAD_PROVIDER)
            << handle;
    }
}

TEST_P(KeyOf, RefusesWhatIsNoKey) {
    const ThrowAway made(type(), {AT_KEYEXCHANGE});
    Key key = userKey(made.context(), AT_KEYEXCHANGE);
    for (const unsigned long handle : notHandles({made.context()})) {
        EXPECT_REFUSED(api().CryptDestroyKey(handle), BAD_KEY_HANDLE) << handle;
        EXPECT_REFUSED(api().CryptGetKeyParam(handle, KP_ALGID, nullptr, &size_, 0), BAD_KEY_HANDLE) << handle;
        EXPECT_REFUSED(api().CryptSetKeyParam(handle, KP_CERTIFICATE, &octet_, 0), BAD_KEY_HANDLE) << handle;
    }
    const unsigned long stale = key.release();
    EXPECT_ACCEPTED(api().CryptDestroyKey(stale));
    EXPECT_REFUSED(api().CryptDestroyKey(stale), BAD_KEY_HANDLE);
    EXPECT_REFUSED(api().CryptGetKeyParam(stale, KP_ALGID, nullptr, &size_, 0), BAD_KEY_HANDLE);
    EXPECT_REFUSED(api().CryptSetKeyParam(stale, KP_CERTIFICATE, &octet_, 0), BAD_KEY_HANDLE);
}

TEST_P(KeyOf, OutlivesItsContextOnlyAsARefusal) {
    ThrowAway made(type(), {AT_KEYEXCHANGE});
    const Key key = userKey(made.context(), AT_KEYEXCHANGE);
    made.close();
    EXPECT_REFUSED(api().CryptGetKeyParam(key.get(), KP_ALGID, nullptr, &size_, 0), NTE_BAD_UID, BAD_KEY_HANDLE);
}

TEST_P(KeyOf, IsNotMadeWithUnknownAlgorithmsOrFlags) {
    const ThrowAway made(type(), {AT_KEYEXCHANGE});
    EXPECT_REFUSED(api().CryptGenKey(made.context(), noAlgorithm, 0, out_.address()), NTE_BAD_ALGID);
    EXPECT_REFUSED(api().CryptGenKey(made.context(), GetParam().hash, 0, out_.address()), NTE_BAD_ALGID);
    EXPECT_REFUSED(api().CryptGenKey(made.context(), AT_SIGNATURE, unknownFlag, out_.address()), NTE_BAD_FLAGS);
}

TEST_P(KeyOf, IsNotThereUntilItIsMade) {
    const ThrowAway made(type(), {AT_KEYEXCHANGE});
    EXPECT_REFUSED(api().CryptGetUserKey(made.context(), AT_SIGNATURE, out_.address()), NTE_NO_KEY);
    EXPECT_REFUSED(api().CryptExportPublicKeyInfo(made.context(), AT_SIGNATURE, X509_ASN_ENCODING, nullptr, &size_),
                   NTE_NO_KEY);
    EXPECT_ACCEPTED(api().CryptGenKey(made.context(), AT_SIGNATURE, 0, out_.address()));
    EXPECT_EQ(userKey(made.context(), AT_SIGNATURE).get() != 0, true);
    EXPECT_REFUSED(api().CryptGetUserKey(made.context(), noKeySpec, out_.address()), NTE_NO_KEY, NTE_BAD_KEY);
}

TEST_P(KeyOf, IsMadeOfBothKinds) {
    const ThrowAway made(type(), {AT_KEYEXCHANGE, AT_SIGNATURE});
    const Key exchange = userKey(made.context(), AT_KEYEXCHANGE);
    const Key signature = userKey(made.context(), AT_SIGNATURE);
    EXPECT_EQ(as<ALG_ID>(walkSizes(param(exchange.get(), KP_ALGID))), GetParam().exchangeId);
    EXPECT_EQ(as<ALG_ID>(walkSizes(param(signature.get(), KP_ALGID))), GetParam().signId);
    EXPECT_GE(as<DWORD>(walkSizes(param(signature.get(), KP_KEYLEN))), 256U);
    Bytes one = publicKeyOf(made.context(), AT_KEYEXCHANGE);
    Bytes other = publicKeyOf(made.context(), AT_SIGNATURE);
    EXPECT_REFUSED(api().CertComparePublicKeyInfo(X509_ASN_ENCODING, info(one), info(other)), CRYPT_E_NO_MATCH, 0);
}

TEST_P(KeyOf, RefusesUnknownParametersAndFlags) {
    const ThrowAway made(type(), {AT_SIGNATURE});
    const Key key = userKey(made.context(), AT_SIGNATURE);
    EXPECT_REFUSED(api().CryptGetKeyParam(key.get(), unknownParam, nullptr, &size_, 0), NTE_BAD_TYPE);
    EXPECT_REFUSED(api().CryptSetKeyParam(key.get(), unknownParam, &octet_, 0), NTE_BAD_TYPE);
    EXPECT_REFUSED(api().CryptGetKeyParam(key.get(), KP_ALGID, nullptr, &size_, unknownFlag), NTE_BAD_FLAGS);
    EXPECT_REFUSED(api().CryptSetKeyParam(key.get(), KP_CERTIFICATE, &octet_, unknownFlag), NTE_BAD_FLAGS);
}

TEST_P(KeyOf, KeepsItsCertificate) {
    ThrowAway made(type(), {AT_SIGNATURE});
    const Bytes der = selfSigned(made.context(), AT_SIGNATURE, GetParam());
    const Key key = userKey(made.context(), AT_SIGNATURE);
    EXPECT_EQ(api().CryptGetKeyParam(key.get(), KP_CERTIFICATE, nullptr, &size_, 0), 0) << "none is there yet";
    EXPECT_ACCEPTED(api().CryptSetKeyParam(key.get(), KP_CERTIFICATE, der.data(), 0));
    EXPECT_EQ(walkSizes(param(key.get(), KP_CERTIFICATE)), der);
    made.close();
    const Context again = made.open();
    const Key reopened = userKey(again.get(), AT_SIGNATURE);
    EXPECT_EQ(fetch(param(reopened.get(), KP_CERTIFICATE)), der);
}

TEST_P(KeyOf, RefusesACertificateThatIsNone) {
    const ThrowAway made(type(), {AT_SIGNATURE});
    const Key key = userKey(made.context(), AT_SIGNATURE);
    const Bytes garbage = fromHex("30030201053003020105");
    EXPECT_EQ(api().CryptSetKeyParam(key.get(), KP_CERTIFICATE, garbage.data(), 0), 0);
}

TEST_P(KeyOf, ExportsItsPublicKey) {
    const ThrowAway made(type(), {AT_KEYEXCHANGE});
    const Bytes exported = walkSizes([&](void* buffer, DWORD* size) {
        return api().CryptExportPublicKeyInfo(made.context(), AT_KEYEXCHANGE, X509_ASN_ENCODING,
                                              static_cast<CERT_PUBLIC_KEY_INFO*>(buffer), size) != 0;
    });
    const auto& key = as<CERT_PUBLIC_KEY_INFO>(exported);
    EXPECT_STREQ(key.Algorithm.pszObjId, GetParam().keyOid);
    EXPECT_GT(key.PublicKey.cbData, 0U);
    EXPECT_EQ(key.PublicKey.cUnusedBits, 0U);
}

TEST_P(KeyOf, IsNotExportedInAnUnknownEncoding) {
    const ThrowAway made(type(), {AT_KEYEXCHANGE});
    EXPECT_REFUSED(api().CryptExportPublicKeyInfo(made.context(), AT_KEYEXCHANGE, 0, nullptr, &size_),
                   ERROR_INVALID_PARAMETER, ERROR_FILE_NOT_FOUND);
}

TEST_P(KeyOf, ImportsWhatItExported) {
    const ThrowAway made(type(), {AT_SIGNATURE});
    Bytes exported = publicKeyOf(made.context(), AT_SIGNATURE);
    const Context elsewhere = verifyContext(type());
    const Key imported = import(elsewhere.get(), exported);
    const Key own = userKey(made.context(), AT_SIGNATURE);
    EXPECT_EQ(fetch(param(imported.get(), KP_KEYLEN)), fetch(param(own.get(), KP_KEYLEN)));
}

TEST_P(KeyOf, RefusesBadImports) {
    const ThrowAway made(type(), {AT_SIGNATURE});
    Bytes exported = publicKeyOf(made.context(), AT_SIGNATURE);
    EXPECT_REFUSED(api().CryptImportPublicKeyInfo(made.context(), X509_ASN_ENCODING, nullptr, out_.address()),
                   ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CryptImportPublicKeyInfo(made.context(), X509_ASN_ENCODING, info(exported), nullptr),
                   ERROR_INVALID_PARAMETER);
    for (const unsigned long handle : notHandles({})) {
        EXPECT_REFUSED(api().CryptImportPublicKeyInfo(handle, X509_ASN_ENCODING, info(exported), out_.address()),
                       BAD_PROVIDER)
            << handle;
    }
    info(exported)->PublicKey.cbData /= 2;
    EXPECT_EQ(api().CryptImportPublicKeyInfo(made.context(), X509_ASN_ENCODING, info(exported), out_.address()), 0)
        << "half a key";
}

TEST_P(KeyOf, ComparesPublicKeys) {
    const ThrowAway made(type(), {AT_SIGNATURE});
    Bytes one = publicKeyOf(made.context(), AT_SIGNATURE);
    Bytes same = publicKeyOf(made.context(), AT_SIGNATURE);
    EXPECT_ACCEPTED(api().CertComparePublicKeyInfo(X509_ASN_ENCODING, info(one), info(same)));
    EXPECT_REFUSED(api().CertComparePublicKeyInfo(X509_ASN_ENCODING, nullptr, info(same)), ERROR_INVALID_PARAMETER);
    EXPECT_REFUSED(api().CertComparePublicKeyInfo(X509_ASN_ENCODING, info(one), nullptr), ERROR_INVALID_PARAMETER);
}

INSTANTIATE_TEST_SUITE_P(Providers, KeyOf, testing::ValuesIn(offeredKinds()), nameOfType<ProviderKind>);

} // namespace conformance
