// What is reported is on disk: which files and folders are synchronised before a call returns, and what a call reports
// when the disk fails.

#include "core/error.hpp"
#include "keys/container.hpp"
#include "service.hpp"

#include <gmock/gmock.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>

namespace {

/// Judges a synchronisation of the file or folder of that path: 0 lets it through, an errno value fails it.
std::function<int(const std::string&)> onSync; // NOLINT

std::string pathOf(int fd) {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), ignored).string();
}

} // namespace

/// Takes the place of the C library's function in this program.
extern "C" int fsync(int fd) {
    static const auto real = reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, "fsync"));
    const int error = onSync ? onSync(pathOf(fd)) : 0;
    if (error != 0) {
        errno = error;
        return -1;
    }
    return real(fd);
}

namespace csp_keys {

using klunortredi::csp::ApiError;
using klunortredi::csp::Container;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;

class Durability : public ServiceTest {
protected:
    Durability() {
        onSync = [this](const std::string& path) {
            synced_.push_back(path);
            const bool fails = !failing_.empty() && path.ends_with(failing_) && ++reached_ == failingFrom_;
            return fails ? EIO : 0;
        };
    }
    ~Durability() override { onSync = nullptr; }
    /// The n-th synchronisation of that folder from now on fails, once.
    void failSyncOf(std::string folder, int n = 1) {
        failing_ = std::move(folder);
        failingFrom_ = n;
        reached_ = 0;
    }
    static BOOL generate(const Context& context, DWORD spec = capi::AT_KEYEXCHANGE) {
        unsigned long key = 0;
        const BOOL made = CryptGenKey(context.get(), spec, 0, &key);
        if (made != 0) {
            CryptDestroyKey(key);
        }
        return made;
    }

    std::vector<std::string> synced_;
    std::string failing_;
    int failingFrom_ = 1;
    int reached_ = 0;
};

} // namespace

TEST_F(Durability, NewContainerAndItsParentsAreSynchronisedBeforeItsKeyPairIsReported) {
    const std::string home = home_ / "new/home";
    ::setenv("KLUNORTREDI_HOME", home.c_str(), 1);
    const Context making(gost, L"c", capi::CRYPT_NEWKEYSET);
    EXPECT_THAT(synced_, ElementsAre(home_.path(), home_ / "new", home)) << "folders that were made";
    ASSERT_TRUE(generate(making));
    EXPECT_EQ(synced_.back(), home + "/containers") << "the rename is the last change";
    EXPECT_THAT(synced_, Contains(home + "/containers/.new-c.80"));
}

TEST_F(Durability, KeyPairOfANewContainerWhoseFolderFailsIsRefusedAndGone) {
    const Context making(gost, L"c", capi::CRYPT_NEWKEYSET);
    failSyncOf("/containers");
    EXPECT_TRUE(refused(generate(making), capi::ERROR_WRITE_FAULT));
    EXPECT_THAT(containerNames(gost, 0), IsEmpty());
    EXPECT_TRUE(generate(making));
    EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), IsEmpty());
}

TEST_F(Durability, SecondKeyPairIsInTheContainerOrRefused) {
    makeContainer(gost, L"c", "");
    for (int n = 1; n < 20; ++n) {
        failSyncOf("/containers/c.80", n);
        const Context context(gost, L"c", 0);
        const BOOL made = generate(context, capi::AT_SIGNATURE);
        Container after = Container::open({"c", gost});
        EXPECT_EQ(after.keys().size(), made != 0 ? 2U : 1U) << n;
        EXPECT_THAT(after.damagedFiles(), IsEmpty()) << n;
        EXPECT_EQ(after.unlock("").size(), after.keys().size()) << n;
        if (made != 0) {
            EXPECT_GT(n, 1);
            EXPECT_LT(reached_, n) << "a success although a synchronisation failed";
            return;
        }
    }
    FAIL() << "never made";
}

TEST_F(Durability, DeletionThatIsNotOnDiskIsRefusedAndNotMade) {
    makeContainer(gost, L"c", "");
    failSyncOf("/containers");
    unsigned long none = 0;
    EXPECT_TRUE(
        refused(CryptAcquireContextW(&none, L"c", nullptr, gost, capi::CRYPT_DELETEKEYSET), capi::ERROR_WRITE_FAULT));
    EXPECT_THAT(containerNames(gost, 0), ElementsAre("c"));
    EXPECT_THAT(Container::open({"c", gost}).damagedFiles(), IsEmpty());
}

TEST_F(Durability, FileWhoseFolderFailsAfterTheChangeIsReported) {
    namespace files = klunortredi::csp::files;
    files::writeAtomically(home_ / "f", bytes("old"));
    failSyncOf(home_.path());
    EXPECT_FALSE(files::replaceAtomically(home_ / "f", bytes("new")));
    EXPECT_EQ(files::read(home_ / "f"), bytes("new")) << "everybody may have seen it";
    failSyncOf(home_.path());
    EXPECT_THROW(files::writeAtomically(home_ / "f", bytes("newer")), ApiError);
    failSyncOf(home_.path());
    EXPECT_THROW(files::removeDurably(home_ / "f"), ApiError);
    EXPECT_FALSE(files::removeDurably(home_ / "f")) << "it is gone";
    files::writeAtomically(home_ / "f", bytes("new"));
    EXPECT_TRUE(files::removeDurably(home_ / "f"));
    EXPECT_EQ(synced_.back(), home_.path());
}

TEST_F(Durability, FolderThatCannotBeSynchronisedAtAllIsNoFailure) {
    const Context making(gost, L"c", capi::CRYPT_NEWKEYSET);
    onSync = [](const std::string& path) { return std::filesystem::is_directory(path) ? EINVAL : 0; };
    EXPECT_TRUE(generate(making));
}

} // namespace csp_keys
