// The files of a directory that count as certificates of authorities and as CRLs.

#include "odd_letters.hpp"
#include "support/temp_folder.hpp"
#include "verifier_fixture.hpp"

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>

#include <array>
#include <filesystem>
#include <locale>
#include <thread>

namespace wincrypt_certificates {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;
using Names = std::vector<std::string>;

class AuthorityFilesTest : public VerifierFixture {
protected:
    void make(const Names& names) const {
        for (const auto& name : names) {
            folder_.write(name, "x");
        }
    }
    void collect() { verifier().initCA(folder_.path()); }
    [[nodiscard]] Names paths(const Names& names) const {
        Names result;
        for (const auto& name : names) {
            result.push_back(folder_ / name);
        }
        return result;
    }
    void expectCollected(const Names& certificates, const Names& crls) {
        collect();
        EXPECT_THAT(verifier().certificateFiles(), UnorderedElementsAreArray(paths(certificates)));
        EXPECT_THAT(verifier().crlFiles(), UnorderedElementsAreArray(paths(crls)));
    }

    test_support::TempFolder folder_; // NOLINT(cppcoreguidelines-non-private-member-variables-in-classes)
};

TEST_F(AuthorityFilesTest, OfCertificatesHaveFiveExtensions) {
    make({"a.crt", "b.cer", "c.der", "d.pem", "e.cert"});
    expectCollected({"a.crt", "b.cer", "c.der", "d.pem", "e.cert"}, {});
}

TEST_F(AuthorityFilesTest, OfCrlsHaveOne) {
    make({"list.crl"});
    expectCollected({}, {"list.crl"});
}

TEST_F(AuthorityFilesTest, OfACrlInPemOrDerCountAsCertificates) {
    make({"root.crl.pem", "root.crl.der"});
    expectCollected({"root.crl.pem", "root.crl.der"}, {});
}

TEST_F(AuthorityFilesTest, AreFoundInAnyCaseAndKeepTheirs) {
    make({"ca.CRT", "Cb.Cert", "LIST.CRL", "ROOT.CRL.PEM"});
    expectCollected({"ca.CRT", "Cb.Cert", "ROOT.CRL.PEM"}, {"LIST.CRL"});
}

TEST_F(AuthorityFilesTest, HaveTheirExtensionsLowerCasedByTheDefaultLocale) {
    make({"a.crQ", "b.CRt"});
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new OddLetters));
    collect();
    std::locale::global(before);
    EXPECT_THAT(verifier().certificateFiles(), UnorderedElementsAreArray(paths({"a.crQ", "b.CRt"})));
}

TEST_F(AuthorityFilesTest, AreCollectedByThreadsOfTheirOwn) {
    make({"a.crt", "b.crl", "c.txt"});
    std::vector<std::thread> threads;
    std::array<std::size_t, 4> collected{};
    for (auto& count : collected) {
        threads.emplace_back([&] {
            orvik::plugin::wincrypt::CertificateVerifier own(signer());
            own.initCA(folder_.path());
            count = (10 * own.certificateFiles().size()) + own.crlFiles().size();
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(collected, testing::Each(11U));
}

TEST_F(AuthorityFilesTest, OfOtherExtensionsAreSkipped) {
    make({"note.txt", "crt", "a.crt.bak", "b.crl~", "c.", "d.p7b", "e.pemx", "f.cr"});
    expectCollected({}, {});
}

TEST_F(AuthorityFilesTest, AreTakenFromOneLevelOnly) {
    std::filesystem::create_directory(folder_ / "inner");
    make({"inner/deep.cer", "inner/deep.crl"});
    expectCollected({}, {});
}

TEST_F(AuthorityFilesTest, AreEntriesOfAnyKind) {
    std::filesystem::create_directory(folder_ / "folder.pem");
    std::filesystem::create_symlink("/nonexistent/file", folder_ / "link.crl");
    expectCollected({"folder.pem"}, {"link.crl"});
}

TEST_F(AuthorityFilesTest, KeepTheOrderOfTheDirectory) {
    make({"z.crt", "a.pem", "m.der", "b.cer", "1.cert", "y.crl", "c.crl"});
    Names certificates;
    Names crls;
    for (const auto& entry : boost::filesystem::directory_iterator(folder_.path())) {
        (entry.path().extension() == ".crl" ? crls : certificates).push_back(entry.path().string());
    }
    collect();
    EXPECT_EQ(verifier().certificateFiles(), certificates);
    EXPECT_EQ(verifier().crlFiles(), crls);
}

TEST_F(AuthorityFilesTest, AreAppendedByEachCall) {
    make({"a.crt", "b.crl"});
    collect();
    collect();
    const test_support::TempFolder second;
    second.write("c.pem", "x");
    verifier().initCA(second.path());
    EXPECT_THAT(verifier().certificateFiles(), ElementsAre(folder_ / "a.crt", folder_ / "a.crt", second / "c.pem"));
    EXPECT_THAT(verifier().crlFiles(), ElementsAre(folder_ / "b.crl", folder_ / "b.crl"));
}

TEST_F(AuthorityFilesTest, OfAnEmptyDirectoryAreNone) {
    expectCollected({}, {});
}

TEST_F(AuthorityFilesTest, OfADirectoryThatCannotBeReadAreTheFileSystemsError) {
    make({"a.crt"});
    collect();
    EXPECT_THROW(verifier().initCA("/nonexistent/directory"), boost::filesystem::filesystem_error);
    EXPECT_THROW(verifier().initCA(folder_ / "a.crt"), boost::filesystem::filesystem_error) << "not a directory";
    EXPECT_THROW(verifier().initCA(""), boost::filesystem::filesystem_error);
    EXPECT_THAT(verifier().certificateFiles(), ElementsAre(folder_ / "a.crt")) << "what was collected stays";
}

TEST_F(AuthorityFilesTest, AreNotOfferedToTheChainEngine) {
    make({"a.crt", "b.crl"});
    collect();
    service().clearCalls();
    EXPECT_TRUE(verifier().validateChain(0));
    EXPECT_THAT(service().trace(), ElementsAre(chainCall("0"), "CertFreeCertificateChain(pointer)"));
    EXPECT_THAT(log(), IsEmpty());
}

} // namespace
} // namespace wincrypt_certificates
