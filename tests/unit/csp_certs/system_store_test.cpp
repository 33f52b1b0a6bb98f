#include "service.hpp"

#include <gmock/gmock.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const pki::Entity& person() {
    static const auto* const entity = new pki::Entity(pki::make({.subject = "Петров", .kind = pki::KeyKind::Gost256}));
    return *entity;
}

std::string runOpenssl(const std::string& arguments) {
    FILE* const pipe = popen(("openssl " + arguments + " 2>&1").c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer{};
    for (std::size_t size = 0; (size = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.append(buffer.data(), size);
    }
    pclose(pipe);
    return output;
}

class SystemStore : public ServiceTest {
protected:
    static BOOL linkTo(PCCERT_CONTEXT certificate, std::wstring container) {
        std::wstring provider = L"Provider";
        const CRYPT_KEY_PROV_INFO info{container.data(), provider.data(), 80, 0, 0, nullptr, 1};
        return api::CertSetCertificateContextProperty(certificate, capi::CERT_KEY_PROV_INFO_PROP_ID, 0, &info);
    }
    /// Adds in a process of its own, as another program would.
    static void addElsewhere(const csp::Bytes& der, const char* store) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(add(systemStore(store).get(), der) == nullptr ? 1 : 0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_EQ(status, 0);
    }
};

TEST_F(SystemStore, KeepsACertificateInAFileThatOpensslReads) {
    const auto held = add(systemStore("MY").get(), person().der);
    ASSERT_TRUE(setBlob(held.get(), capi::CERT_FRIENDLY_NAME_PROP_ID, wideBytes(L"моя подпись")));
    std::wstring container = L"ключ \\1\n";
    std::wstring provider = L"Provider";
    const CRYPT_KEY_PROV_INFO info{container.data(), provider.data(), 80, 0, 0, nullptr, 1};
    ASSERT_TRUE(api::CertSetCertificateContextProperty(held.get(), capi::CERT_KEY_PROV_INFO_PROP_ID, 0, &info));

    ASSERT_THAT(files("my"), SizeIs(1));
    const auto file = files("my").front();
    const std::string text = content(file);
    EXPECT_THAT(text, HasSubstr("# Петров\n"));
    EXPECT_THAT(text, HasSubstr("friendly-name: моя подпись\n"));
    EXPECT_THAT(text, HasSubstr("key-container: ключ \\5c1\\0a\n"));
    EXPECT_THAT(text, HasSubstr("key-provider-type: 80\n"));
    std::string fingerprint = runOpenssl("x509 -noout -fingerprint -sha1 -in " + file.string());
    std::erase(fingerprint, ':');
    std::string name = file.stem().string();
    std::ranges::transform(name, name.begin(), [](char c) { return static_cast<char>(std::toupper(c)); });
    EXPECT_THAT(fingerprint, HasSubstr(name));
}

TEST_F(SystemStore, KeepsTheKeyLinkOfACertificateThatIsAddedAgain) {
    const auto store = systemStore("my");
    const auto held = add(store.get(), person().der);
    ASSERT_TRUE(setBlob(held.get(), 77, {1}));
    ASSERT_TRUE(linkTo(held.get(), L"one"));
    const auto again = add(store.get(), person().der);
    EXPECT_THAT(content(files("my").front()), HasSubstr("key-container: one\n"));
    EXPECT_TRUE(property(again.get(), 77).empty()) << "its other properties are the new ones";
    const auto source = contextOf(person().der);
    ASSERT_TRUE(linkTo(source.get(), L"other"));
    ASSERT_TRUE(api::CertAddCertificateContextToStore(store.get(), source.get(), capi::CERT_STORE_ADD_REPLACE_EXISTING,
                                                      nullptr));
    EXPECT_THAT(content(files("my").front()), HasSubstr("key-container: other\n")) << "a new link replaces the old one";
}

TEST_F(SystemStore, CertificateWithAKeyIsNotReplacedByOneOfAnotherKey) {
    const auto store = systemStore("my");
    const auto held = add(store.get(), person().der);
    ASSERT_TRUE(linkTo(held.get(), L"one"));
    const auto forged =
        pki::make({.subject = "Петров", .kind = pki::KeyKind::Gost256, .notAfter = std::time(nullptr) + 9});
    EXPECT_EQ(add(store.get(), forged.der), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::CRYPT_E_EXISTS);
    ASSERT_THAT(files("my"), SizeIs(1));
    EXPECT_THAT(content(files("my").front()), HasSubstr("key-container: one\n"));
    EXPECT_NE(add(store.get(), forged.der, capi::CERT_STORE_ADD_ALWAYS), nullptr) << "beside it, when asked";
    EXPECT_NE(add(store.get(), person().der), nullptr) << "the certificate itself is found first";
    EXPECT_THAT(files("my"), SizeIs(2));
}

TEST_F(SystemStore, IsPrivateToItsUser) {
    add(systemStore("my").get(), person().der);
    struct stat status {};
    ASSERT_EQ(stat(folder("my").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
    ASSERT_EQ(stat(files("my").front().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(SystemStore, LastsWithItsPropertiesBeyondTheProcess) {
    std::wstring container = L"ключ \\1\n";
    std::wstring provider = L"Provider";
    csp::Bytes data{1, 2};
    CRYPT_KEY_PROV_PARAM parameter{99, data.data(), 2, 7};
    const CRYPT_KEY_PROV_INFO info{container.data(), provider.data(), 80, 4, 1, &parameter, 2};
    const pid_t child = fork();
    if (child == 0) {
        const auto held = add(systemStore("my").get(), person().der);
        const bool done = setBlob(held.get(), capi::CERT_FRIENDLY_NAME_PROP_ID, wideBytes(L"моя\n\\подпись")) &&
                          setBlob(held.get(), capi::CERT_DESCRIPTION_PROP_ID, {1, 2, 3}) &&
                          setBlob(held.get(), 77, {0xAB}) &&
                          api::CertSetCertificateContextProperty(held.get(), 2, 0, &info) != 0;
        _exit(done ? 0 : 1);
    }
    int status = 1;
    waitpid(child, &status, 0);
    ASSERT_EQ(status, 0);

    const auto store = systemStore("my");
    const Context held(api::CertEnumCertificatesInStore(store.get(), nullptr));
    ASSERT_NE(held, nullptr);
    EXPECT_EQ(property(held.get(), capi::CERT_FRIENDLY_NAME_PROP_ID), wideBytes(L"моя\n\\подпись"));
    EXPECT_EQ(property(held.get(), capi::CERT_DESCRIPTION_PROP_ID), (csp::Bytes{1, 2, 3}));
    EXPECT_EQ(property(held.get(), 77), csp::Bytes{0xAB});
    alignas(8) std::array<std::uint8_t, 512> block{};
    DWORD size = block.size();
    ASSERT_TRUE(api::CertGetCertificateContextProperty(held.get(), 2, block.data(), &size));
    const auto& read = *reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(block.data());
    EXPECT_EQ(read.pwszContainerName, container);
    EXPECT_EQ(read.pwszProvName, provider);
    EXPECT_EQ(read.dwProvType, 80U);
    EXPECT_EQ(read.dwFlags, 4U);
    EXPECT_EQ(read.dwKeySpec, 2U);
    ASSERT_EQ(read.cProvParam, 1U);
    EXPECT_EQ(read.rgProvParam->dwParam, 99U);
    EXPECT_EQ(read.rgProvParam->dwFlags, 7U);
    EXPECT_EQ(csp::Bytes(read.rgProvParam->pbData, read.rgProvParam->pbData + 2), data);
}

TEST_F(SystemStore, NeverWritesAPin) {
    std::wstring container = L"c";
    std::string pin = "1234567890";
    CRYPT_KEY_PROV_PARAM parameter{capi::PP_KEYEXCHANGE_PIN, reinterpret_cast<BYTE*>(pin.data()), 11, 0};
    const CRYPT_KEY_PROV_INFO info{container.data(), nullptr, 80, 0, 1, &parameter, 1};
    const auto held = add(systemStore("my").get(), person().der);
    ASSERT_TRUE(api::CertSetCertificateContextProperty(held.get(), 2, 0, &info));
    EXPECT_THAT(content(files("my").front()), testing::Not(HasSubstr("key-parameter")));
}

TEST_F(SystemStore, SharesPropertiesBetweenItsOpenings) {
    const auto one = add(systemStore("my").get(), person().der);
    const auto again = systemStore("My");
    const Context other(api::CertEnumCertificatesInStore(again.get(), nullptr));
    ASSERT_TRUE(setBlob(one.get(), 77, {1}));
    EXPECT_EQ(property(other.get(), 77), csp::Bytes{1});
}

TEST_F(SystemStore, SeesWhatAnotherProcessAdds) {
    const auto store = systemStore("my");
    ASSERT_THAT(walk(store.get()), IsEmpty());
    addElsewhere(person().der, "my");
    EXPECT_THAT(walk(store.get()), ElementsAre(person().der));
}

TEST_F(SystemStore, KeepsEverythingThatSeveralProcessesAddAtOnce) {
    constexpr int writers = 4;
    constexpr int each = 5;
    std::vector<pki::Entity> entities;
    for (int i = 0; i < writers * each; ++i) {
        entities.push_back(pki::make({.subject = "n" + std::to_string(i), .serial = i + 1}));
    }
    for (int writer = 0; writer < writers; ++writer) {
        if (fork() == 0) {
            bool done = true;
            for (int i = 0; i < each; ++i) {
                done = add(systemStore("ca").get(), entities[static_cast<std::size_t>(writer * each + i)].der) && done;
            }
            _exit(done ? 0 : 1);
        }
    }
    for (int writer = 0; writer < writers; ++writer) {
        int status = 1;
        wait(&status);
        EXPECT_EQ(status, 0);
    }
    EXPECT_THAT(walk(systemStore("ca").get()), SizeIs(writers * each));
}

TEST_F(SystemStore, PassesOverACorruptFileAndLeavesItAlone) {
    add(systemStore("my").get(), person().der);
    const auto cut = folder("my") / (std::string(40, 'a') + ".pem");
    write(cut, "-----BEGIN CERTIFICATE-----\nMIIB");
    const auto odd = folder("my") / (std::string(40, 'b') + ".pem");
    write(odd, content(files("my").front())); // another certificate than its name says
    EXPECT_THAT(walk(systemStore("my").get()), ElementsAre(person().der));
    add(systemStore("my").get(), pki::make({.subject = "x", .serial = 7}).der);
    EXPECT_TRUE(std::filesystem::exists(cut));
    EXPECT_TRUE(std::filesystem::exists(odd));
}

TEST_F(SystemStore, ForgetsWhatAKilledWriterLeft) {
    const auto left = folder("my") / ".tmp-abcdef";
    write(left, "-----BEGIN");
    EXPECT_THAT(walk(systemStore("my").get()), IsEmpty());
    add(systemStore("my").get(), person().der);
    EXPECT_FALSE(std::filesystem::exists(left));
}

TEST_F(SystemStore, IsWholeWheneverAWriterIsKilled) {
    add(systemStore("my").get(), person().der);
    for (int round = 1; round <= 10; ++round) {
        std::array<int, 2> progress{};
        ASSERT_EQ(pipe(progress.data()), 0);
        const pid_t child = fork();
        if (child == 0) {
            const auto store = systemStore("my");
            const Context held(api::CertEnumCertificatesInStore(store.get(), nullptr));
            for (std::uint8_t value = 0;; ++value) {
                setBlob(held.get(), 77, csp::Bytes(20000, value));
                static_cast<void>(!::write(progress[1], &value, 1));
            }
        }
        close(progress[1]);
        for (int i = 0; i < round; ++i) {
            char done = 0;
            ASSERT_EQ(::read(progress[0], &done, 1), 1);
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(progress[0]);

        const auto store = systemStore("my");
        const Context held(api::CertEnumCertificatesInStore(store.get(), nullptr));
        ASSERT_NE(held, nullptr);
        const csp::Bytes value = property(held.get(), 77);
        ASSERT_EQ(value.size(), 20000U);
        EXPECT_EQ(value, csp::Bytes(20000, value.front())) << "half of one, half of another";
        ASSERT_TRUE(setBlob(held.get(), 78, {1})); // the lock went with the process
        EXPECT_THAT(files("my"), SizeIs(1)) << "what was half-written is cleaned up";
    }
}

TEST_F(SystemStore, StandsAsItWasWhenTheDiskIsFull) {
    const auto held = add(systemStore("my").get(), person().der);
    const std::string before = content(files("my").front());
    // A file size limit stands in for a full disk: both make a write fall short.
    signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const rlimit none{16, old.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
    const bool set = setBlob(held.get(), 77, csp::Bytes(100, 1));
    const DWORD error = api::GetLastError();
    const bool added = add(systemStore("my").get(), pki::make({.subject = "x", .serial = 7}).der) != nullptr;
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_FALSE(set);
    EXPECT_EQ(error, capi::ERROR_DISK_FULL);
    EXPECT_FALSE(added);
    EXPECT_TRUE(property(held.get(), 77).empty());
    ASSERT_THAT(files("my"), SizeIs(1));
    EXPECT_EQ(content(files("my").front()), before);
}

TEST_F(SystemStore, RefusesNamesThatAreNoNames) {
    for (const char* name : {"", "..", "../my", "a/b", ".hidden", "a b", "a\\b", "имя"}) {
        EXPECT_EQ(api::CertOpenSystemStore(0, name), nullptr) << name;
        EXPECT_EQ(api::GetLastError(), capi::ERROR_INVALID_PARAMETER) << name;
    }
    EXPECT_EQ(api::CertOpenSystemStore(0, nullptr), nullptr);
    EXPECT_EQ(api::CertOpenSystemStore(0, std::string(65, 'a').c_str()), nullptr);
}

TEST_F(SystemStore, OpensByProviderWithANarrowOrAWideName) {
    add(systemStore("ca").get(), person().der);
    const StoreHandle narrow(api::CertOpenStore(storeProvider(capi::CERT_STORE_PROV_SYSTEM_A), 0, 0, 0x00010000, "CA"));
    const StoreHandle wide(api::CertOpenStore(storeProvider(capi::CERT_STORE_PROV_SYSTEM_W), 0, 0, 0x00020000, L"ca"));
    EXPECT_THAT(walk(narrow.get()), SizeIs(1));
    EXPECT_THAT(walk(wide.get()), SizeIs(1));
}

TEST_F(SystemStore, CanBeAskedToExistAlready) {
    const auto open = [] {
        return StoreHandle(api::CertOpenStore(storeProvider(capi::CERT_STORE_PROV_SYSTEM_A), 0, 0,
                                              capi::CERT_STORE_OPEN_EXISTING_FLAG, "mine"));
    };
    EXPECT_EQ(open(), nullptr);
    EXPECT_EQ(api::GetLastError(), capi::ERROR_FILE_NOT_FOUND);
    add(systemStore("mine").get(), person().der);
    EXPECT_NE(open(), nullptr);
}

TEST_F(SystemStore, WritesNothingWhenItIsOnlyRead) {
    walk(systemStore("my").get());
    EXPECT_FALSE(std::filesystem::exists(home_ / "stores"));
}

} // namespace
