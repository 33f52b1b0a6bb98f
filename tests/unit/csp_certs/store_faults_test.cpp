// What cannot be read is neither absent nor damaged: every question that it may concern says so.

#include "capi/skipped_entries.hpp"
#include "core/hex.hpp"
#include "core/skipped.hpp"
#include "file_calls.hpp"
#include "service.hpp"
#include "x509/certificate.hpp"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <cerrno>
#include <initializer_list>

namespace {

using file_calls::Call;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

struct Fault {
    int error;
    DWORD code;
};
constexpr Fault faults[]{{EIO, capi::ERROR_READ_FAULT},
                         {EMFILE, capi::ERROR_TOO_MANY_OPEN_FILES},
                         {ENFILE, capi::ERROR_TOO_MANY_OPEN_FILES},
                         {EACCES, capi::ERROR_ACCESS_DENIED},
                         {ENOMEM, capi::ERROR_NOT_ENOUGH_MEMORY}};

class StoreFaults : public ServiceTest {
protected:
    StoreFaults() {
        add(systemStore("ca").get(), one_.der);
        add(systemStore("ca").get(), two_.der);
        csp::forgetSkipped();
    }
    ~StoreFaults() override { file_calls::judge = nullptr; }

    [[nodiscard]] std::filesystem::path fileOf(const pki::Entity& entity) const {
        return folder("ca") / (csp::toHex(csp::Certificate(entity.der).thumbprint()) + ".pem");
    }
    static void failAt(Call call, const std::string& path, int error) {
        file_calls::judge = [=](Call made, const std::string& of) { return made == call && of == path ? error : 0; };
    }
    /// The error after a search that finds nothing; 0 when something is found.
    static DWORD searchError(DWORD type, const void* wanted) {
        const auto store = systemStore("ca");
        const Context found(api::CertFindCertificateInStore(store.get(), encodings, 0, type, wanted, nullptr));
        return found ? 0 : api::GetLastError();
    }
    static DWORD findByIssuerAndSerial(const pki::Entity& entity) {
        const Context wanted = contextOf(entity.der);
        return searchError(capi::CERT_FIND_SUBJECT_CERT, wanted->pCertInfo);
    }
    static DWORD findExisting(const pki::Entity& entity) {
        return searchError(capi::CERT_FIND_EXISTING, contextOf(entity.der).get());
    }

    const pki::Entity one_ = pki::make({.subject = "one", .serial = 1});
    const pki::Entity two_ = pki::make({.subject = "two", .serial = 2});
    const pki::Entity other_ = pki::make({.subject = "other", .serial = 3});
};

TEST_F(StoreFaults, FolderThatCannotBeReadIsNotEmpty) {
    for (const Call call : {Call::Stat, Call::OpenFolder}) {
        for (const Fault& fault : faults) {
            failAt(call, folder("ca").string(), fault.error);
            const auto store = systemStore("ca");
            EXPECT_THAT(walk(store.get()), IsEmpty());
            EXPECT_EQ(api::GetLastError(), fault.code);
            EXPECT_EQ(findByIssuerAndSerial(one_), fault.code);
        }
    }
}

TEST_F(StoreFaults, FolderWhoseListBreaksOffIsNotWhatWasRead) {
    for (const int after : {0, 1, 3}) {
        int reads = 0;
        file_calls::judge = [&](Call call, const std::string&) {
            return call == Call::ReadFolder && reads++ == after ? EIO : 0;
        };
        EXPECT_THAT(walk(systemStore("ca").get()), IsEmpty());
        EXPECT_EQ(api::GetLastError(), capi::ERROR_READ_FAULT);
    }
}

TEST_F(StoreFaults, InterruptedCallsAreRepeated) {
    int interrupted = 0;
    file_calls::judge = [&](Call call, const std::string&) {
        return call != Call::Stat && ++interrupted % 2 != 0 ? EINTR : 0;
    };
    EXPECT_THAT(walk(systemStore("ca").get()), SizeIs(2));
    EXPECT_GT(interrupted, 8);
}

TEST_F(StoreFaults, FileThatCannotBeReadHidesNoOtherAndIsNamed) {
    for (const Call call : {Call::Stat, Call::Open}) {
        for (const Fault& fault : faults) {
            csp::forgetSkipped();
            failAt(call, fileOf(one_).string(), fault.error);
            EXPECT_THAT(walk(systemStore("ca").get()), ElementsAre(two_.der));
            EXPECT_EQ(api::GetLastError(), fault.code) << "the end of the walk is not the end of the store";
            EXPECT_EQ(csp::skippedText(), std::to_string(fault.code) + ' ' + fileOf(one_).string() + '\n');
        }
    }
    file_calls::judge = nullptr;
    EXPECT_THAT(walk(systemStore("ca").get()), SizeIs(2)) << "it is tried again";
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND);
}

TEST_F(StoreFaults, FailedReadOfAFileIsNotDamage) {
    file_calls::judge = [](Call call, const std::string&) { return call == Call::Read ? EIO : 0; };
    EXPECT_THAT(walk(systemStore("ca").get()), IsEmpty());
    EXPECT_EQ(api::GetLastError(), capi::ERROR_READ_FAULT);
}

TEST_F(StoreFaults, SearchSaysThatItCannotTellOnlyWhenTheFileMayBeMeant) {
    failAt(Call::Open, fileOf(one_).string(), EACCES);
    EXPECT_EQ(findByIssuerAndSerial(two_), 0U);
    EXPECT_EQ(findByIssuerAndSerial(one_), capi::ERROR_ACCESS_DENIED);
    EXPECT_EQ(findByIssuerAndSerial(other_), capi::ERROR_ACCESS_DENIED) << "nobody knows what the file holds";
    EXPECT_EQ(findExisting(one_), capi::ERROR_ACCESS_DENIED);
    EXPECT_EQ(findExisting(other_), capi::CRYPT_E_NOT_FOUND) << "its file would have another name";
}

TEST_F(StoreFaults, DamagedFileIsNamedAndDoesNotMakeAnswersUncertain) {
    write(fileOf(one_), "-----BEGIN CERTIFICATE-----\nAAAA\n");
    EXPECT_THAT(walk(systemStore("ca").get()), ElementsAre(two_.der));
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_NOT_FOUND);
    EXPECT_EQ(csp::skippedText(), "13 " + fileOf(one_).string() + '\n');
    EXPECT_EQ(findExisting(one_), capi::CRYPT_E_NOT_FOUND);
}

TEST_F(StoreFaults, LinkToNowhereAndFifoAreNamed) {
    const std::string link = folder("ca") / (std::string(40, 'a') + ".pem");
    const std::string fifo = folder("ca") / (std::string(40, 'b') + ".pem");
    std::filesystem::create_symlink(home_ / "nowhere", link);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_THAT(walk(systemStore("ca").get()), SizeIs(2));
    EXPECT_THAT(csp::skippedText(), AllOf(HasSubstr("2 " + link), HasSubstr("13 " + fifo)));
}

TEST_F(StoreFaults, NothingIsReplacedOrChangedUnread) {
    const auto store = systemStore("ca");
    const Context held(api::CertEnumCertificatesInStore(store.get(), nullptr));
    file_calls::judge = [](Call call, const std::string& path) {
        return call == Call::Open && path.ends_with(".pem") ? EIO : 0;
    };
    const pki::Entity twin = pki::make({.subject = "one", .serial = 1});
    EXPECT_EQ(add(systemStore("ca").get(), other_.der), nullptr) << "one of them may be its predecessor";
    EXPECT_EQ(api::GetLastError(), capi::ERROR_READ_FAULT);
    file_calls::judge = nullptr;
    EXPECT_EQ(files("ca").size(), 2U);
}

TEST_F(StoreFaults, ChainIsNotCalledUntrustedWhenItsIssuerCannotBeRead) {
    const pki::Entity root = pki::root("R");
    const pki::Entity leaf = pki::make({.subject = "leaf", .issuer = &root});
    add(systemStore("root").get(), root.der);
    const auto refusal = [&] {
        const Context context = contextOf(leaf.der);
        CERT_CHAIN_PARA para{};
        para.cbSize = sizeof para;
        const CERT_CHAIN_CONTEXT* chain = nullptr;
        const BOOL built =
            api::CertGetCertificateChain(nullptr, context.get(), nullptr, nullptr, &para, 0, nullptr, &chain);
        const DWORD status = built != 0 ? chain->TrustStatus.dwErrorStatus : api::GetLastError();
        api::CertFreeCertificateChain(chain);
        return std::pair(built, status);
    };
    EXPECT_EQ(refusal(), std::pair(1, 0U));
    const std::string file = folder("root") / (csp::toHex(csp::Certificate(root.der).thumbprint()) + ".pem");
    for (const Fault& fault : faults) {
        failAt(Call::Open, file, fault.error);
        EXPECT_EQ(refusal(), std::pair(0, fault.code));
    }
}

TEST_F(StoreFaults, ListOfSkippedFilesIsGivenOnceAndForgotten) {
    write(fileOf(one_), "junk");
    walk(systemStore("ca").get());
    unsigned long provider = 0;
    ASSERT_TRUE(api::CryptAcquireContextW(&provider, nullptr, nullptr, capi::PROV_RSA_AES, capi::CRYPT_VERIFYCONTEXT));
    std::array<BYTE, 4096> text{};
    DWORD size = text.size();
    ASSERT_TRUE(api::CryptGetProvParam(provider, capi::PP_SKIPPED_ENTRIES, text.data(), &size, 0));
    EXPECT_EQ(reinterpret_cast<const char*>(text.data()), "13 " + fileOf(one_).string() + '\n');
    size = text.size();
    ASSERT_TRUE(api::CryptGetProvParam(provider, capi::PP_SKIPPED_ENTRIES, text.data(), &size, 0));
    EXPECT_EQ(size, 1U) << "only the final zero";
    api::CryptReleaseContext(provider, 0);
}

} // namespace
