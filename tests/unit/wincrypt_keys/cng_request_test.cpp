// Requests and installation with providers of the other kind, CNG, and with a provider that lacks the algorithm of a
// parameter set that it lists.
#include "cng_answers.hpp"

#include "unit/wincrypt_signatures/csr_fixture.hpp"

#include "orvik/plugin/base64.hpp"
#include "service_double/flatten.hpp"

namespace wincrypt_signatures {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class CngRequest : public CsrFixture {
protected:
    CngRequest() { wincrypt_keys::forgetAnswers(); }
    ~CngRequest() override { wincrypt_keys::forgetAnswers(); }

    /// The service exports and signs without a context, as such a provider's key would need it.
    static void arrangeWithoutContext() {
        service().on.CryptExportPublicKeyInfo = [](unsigned long context, DWORD, DWORD, CERT_PUBLIC_KEY_INFO* info,
                                                   DWORD* size) {
            EXPECT_EQ(context, 0U);
            service_double::Flat flat(sizeof(CERT_PUBLIC_KEY_INFO));
            flat.text(offsetof(CERT_PUBLIC_KEY_INFO, Algorithm.pszObjId), std::string("1.2.643.7.1.1.1.1"));
            flat.blob(offsetof(CERT_PUBLIC_KEY_INFO, PublicKey), "bits");
            return giveFlat(flat, info, size);
        };
    }
};

TEST_F(CngRequest, GetsNoContainerNoParameterAndNoKey) {
    wincrypt_keys::providersAreCng = true;
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }),
              (Thrown{code(capi::NTE_NO_KEY), "wincrypt_handler", "CryptExportPublicKeyInfoEx", 0}));
    EXPECT_THAT(functions(), ElementsAre("CryptEncodeObject", "CryptEncodeObject", "CryptExportPublicKeyInfo"));
    EXPECT_THAT(set_, IsEmpty());
    EXPECT_THAT(containers(), ElementsAre(L"box"));
    EXPECT_TRUE(logged(Severity::info, "wincrypt: certificate request: container: \"new\", algorithm: "
                                       "GR 34.10-2012 256"));
    EXPECT_TRUE(logged(Severity::info, "wincrypt: certificate request: failed"));
}

TEST_F(CngRequest, EndsWhereItsKeyWouldBeHashed) {
    wincrypt_keys::providersAreCng = true;
    arrangeWithoutContext();
    EXPECT_EQ(thrownBy<CryptoException>([&] { create(); }), (Thrown{30004, "hash", "CryptHash", 0}))
        << "such a provider has no context to hash with";
    EXPECT_THAT(functions(), Not(Contains("CryptGenKey")));
    EXPECT_THAT(functions(), Not(Contains("CryptAcquireContextW")));
    EXPECT_THAT(functions(), Not(Contains("CryptReleaseContext")));
}

TEST_F(CngRequest, TakesTheNameOfTheParameterSetsAlgorithm) {
    wincrypt_keys::providersAreCng = true;
    params_->paramSet = "1.2.643.7.1.2.1.1.1";
    service().oids["1.2.643.7.1.1.1.1"] = {capi::CALG_GR3410_12_256, L"GR 34.10-2012 256 of the service"};
    EXPECT_EQ(thrownBy<SystemException>([&] { create(); }).code, code(capi::NTE_NO_KEY));
    EXPECT_TRUE(logged(Severity::info, "wincrypt: certificate request: container: \"new\", algorithm: "
                                       "GR 34.10-2012 256 of the service"));
    EXPECT_THAT(service().trace(), Contains("CryptFindOIDInfo(1, \"1.2.643.7.1.1.1.1\", 0)"));
}

TEST_F(CngRequest, WithoutThatNameIsRefused) {
    wincrypt_keys::providersAreCng = true;
    params_->paramSet = "1.2.643.7.1.2.1.1.1";
    EXPECT_EQ(thrownBy<CryptoException>([&] { create(); }), at("getAgreementAlgorithm", 30007)) << "it is not known";
    service().oids["1.2.643.7.1.1.1.1"] = {capi::CALG_GR3410_12_256, L""};
    EXPECT_EQ(thrownBy<CryptoException>([&] { create(); }), at("getAgreementAlgorithm", 30007)) << "it has no name";
}

TEST_F(CngRequest, OfAnUnknownParameterSetIsRefusedBeforeItsName) {
    wincrypt_keys::providersAreCng = true;
    params_->paramSet = "1.2.3";
    EXPECT_EQ(thrownBy<CryptoException>([&] { create(); }), at("getAgreementAlgorithm", 30023));
}

TEST_F(CngRequest, AlgorithmThatTheProviderLacksIsRefusedBeforeAContainerIsMade) {
    params_->paramSet = "1.2.643.2.2.35.1"; // keys of 2012 and of 2001
    wincrypt_keys::algorithms = {"1.2.840.113549.1.1.1"};
    EXPECT_EQ(thrownBy<CryptoException>([&] { create(); }), at("getAgreementAlgorithm", 30007));
    EXPECT_THAT(functions(), ElementsAre("CryptEncodeObject", "CryptEncodeObject")) << "the subject alone";
    for (const char* either : {"1.2.643.7.1.1.1.1", "1.2.643.2.2.19"}) {
        wincrypt_keys::algorithms = {either};
        service().oids["1.2.643.2.2.9"] = {0x801E, L""};
        params_->container += L"x";
        EXPECT_NE(create(), nullptr) << either;
        EXPECT_EQ(set_.front(), "95/0/1.2.643.2.2.35.1");
    }
}

TEST_F(CngRequest, InstallationFindsNoContainer) {
    const auto signer = certificate();
    wincrypt_keys::providersAreCng = true;
    EXPECT_EQ(thrownBy<CryptoException>([&] { signer->install(provider(), L"box", "1234"); }),
              (Thrown{30005, "certificate", "install", 0}));
    EXPECT_THAT(service().trace(), IsEmpty());
}

TEST_F(CngRequest, InstallationForAProviderWithoutNameIsRefused) {
    const auto signer = certificate();
    EXPECT_EQ(thrownBy<CryptoException>(
                  [&] { signer->install(orvik::plugin::wincrypt::Provider(80UL, L""), L"box", "1234"); }),
              (Thrown{30030, "scoped_handle", "operator()", 65}));
    EXPECT_THAT(service().trace(), IsEmpty());
}

} // namespace
} // namespace wincrypt_signatures
