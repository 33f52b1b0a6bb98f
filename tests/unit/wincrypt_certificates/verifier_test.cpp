#include "certificates_fixture.hpp"

#include "crypto/wincrypt/certificate_verifier.hpp"

#include <boost/filesystem/operations.hpp>

#include <fstream>

namespace wincrypt_certificates {
namespace {

using orvik::plugin::wincrypt::CertificateVerifier;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

using VerifierTest = CertificatesFixture;

TEST_F(VerifierTest, NamesTheMostImportantBitAlone) {
    const auto signer = certificate();
    const CertificateVerifier verifier(*signer);
    EXPECT_EQ(verifier.statusString(0x24), "CERT_TRUST_IS_REVOKED");
    EXPECT_EQ(verifier.statusString(0x10001), "CERT_TRUST_IS_NOT_TIME_VALID");
    EXPECT_EQ(verifier.statusString(0x10020), "CERT_TRUST_IS_UNTRUSTED_ROOT");
    EXPECT_EQ(verifier.statusString(0x10080), "CERT_TRUST_IS_PARTIAL_CHAIN");
    EXPECT_EQ(verifier.statusString(0x80000), "CERT_TRUST_CTL_IS_NOT_VALID_FOR_USAGE");
    EXPECT_EQ(verifier.statusString(0x0A000000), "CERT_TRUST_NO_ISSUANCE_CHAIN_POLICY");
}

TEST_F(VerifierTest, HasNoNameForNoBitAndForUnknownBits) {
    const auto signer = certificate();
    const CertificateVerifier verifier(*signer);
    EXPECT_EQ(verifier.statusString(0), "");
    EXPECT_EQ(verifier.statusString(0x40100002), "");
}

TEST_F(VerifierTest, PassesTheFlagsOnAndFreesTheChain) {
    const auto signer = certificate();
    const CertificateVerifier verifier(*signer);
    DWORD size = 0;
    service().on.CertGetCertificateChain = [&](void* engine, PCCERT_CONTEXT context, FILETIME* time, void* store,
                                               CERT_CHAIN_PARA* para, DWORD flags, void* reserved,
                                               PCCERT_CHAIN_CONTEXT* result) {
        EXPECT_EQ(engine, nullptr);
        EXPECT_EQ(context, signer->context());
        EXPECT_EQ(time, nullptr);
        EXPECT_EQ(store, nullptr);
        EXPECT_EQ(para->RequestedUsage.dwType + para->RequestedUsage.Usage.cUsageIdentifier, 0U);
        EXPECT_EQ(flags, 0x12345U);
        size = para->cbSize;
        return Defaults::CertGetCertificateChain(engine, context, time, store, para, flags, reserved, result);
    };
    EXPECT_TRUE(verifier.validateChain(0x12345));
    EXPECT_EQ(size, 32U);
    EXPECT_THAT(functions(), ElementsAre("CertGetCertificateChain", "CertFreeCertificateChain"));
}

TEST_F(VerifierTest, KeepsTheStatusOfTheLastChain) {
    const auto signer = certificate();
    const CertificateVerifier verifier(*signer);
    EXPECT_EQ(verifier.status(), 0U);
    service().chainStatus = 0x20;
    EXPECT_FALSE(verifier.validateChain(0));
    EXPECT_EQ(verifier.status(), 0x20U);
    service().failFunction("CertGetCertificateChain", 5);
    EXPECT_EQ(thrownBy<SystemException>([&] { static_cast<void>(verifier.validateChain(0)); }),
              (Thrown{5, "certificate_verifier", "getContext", 0}));
    EXPECT_EQ(verifier.status(), 0x20U);
    service().failFunction("CertGetCertificateChain", 0);
    service().chainStatus = 0;
    EXPECT_TRUE(verifier.validateChain(0));
    EXPECT_EQ(verifier.status(), 0U);
}

TEST_F(VerifierTest, CollectsFilesByTheirLastExtensionInAnyCase) {
    const auto directory = boost::filesystem::temp_directory_path() / boost::filesystem::unique_path();
    boost::filesystem::create_directories(directory / "folder");
    for (const char* name : {"ca.CRT", "root.crl.pem", "list.Crl", "note.txt", "folder/inner.cer"}) {
        std::ofstream((directory / name).string()) << "x";
    }
    const auto signer = certificate();
    CertificateVerifier verifier(*signer);
    verifier.initCA(directory);
    boost::filesystem::remove_all(directory);
    EXPECT_THAT(verifier.certificateFiles(),
                UnorderedElementsAre((directory / "ca.CRT").string(), (directory / "root.crl.pem").string()));
    EXPECT_THAT(verifier.crlFiles(), ElementsAre((directory / "list.Crl").string()));
}

TEST_F(VerifierTest, DirectoryThatCannotBeReadIsTheFilesystemsError) {
    const auto signer = certificate();
    CertificateVerifier verifier(*signer);
    EXPECT_THROW(verifier.initCA("/nonexistent/directory"), boost::filesystem::filesystem_error);
}

} // namespace
} // namespace wincrypt_certificates
