#include "core/files.hpp"
#include "core/home.hpp"
#include "keys/certificate_argument.hpp"
#include "service.hpp"
#include "support/open_file_limit.hpp"

#include <gmock/gmock.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace csp_keys {

namespace files = klunortredi::csp::files;
using klunortredi::csp::ApiError;
using klunortredi::csp::dataDirectory;

namespace {

mode_t modeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
}

} // namespace

TEST(DataDirectory, IsReadFromTheEnvironmentAtEachCall) {
    ::setenv("KLUNORTREDI_HOME", "/own", 1);
    EXPECT_EQ(dataDirectory(), "/own");
    ::setenv("KLUNORTREDI_HOME", "", 1);
    ::setenv("XDG_DATA_HOME", "/data", 1);
    EXPECT_EQ(dataDirectory(), "/data/klunortredi");
    ::unsetenv("KLUNORTREDI_HOME");
    ::setenv("HOME", "/home/me", 1);
    ::setenv("XDG_DATA_HOME", "not/absolute", 1);
    EXPECT_EQ(dataDirectory(), "/home/me/.local/share/klunortredi");
    ::unsetenv("XDG_DATA_HOME");
    EXPECT_EQ(dataDirectory(), "/home/me/.local/share/klunortredi");
    ::unsetenv("HOME");
    EXPECT_TRUE(dataDirectory().is_absolute()) << "from the user database";
}

TEST(Files, AreForTheirOwnerAlone) {
    const test_support::TempFolder folder;
    ::umask(0);
    files::makeDirectories(folder / "a/b/c");
    EXPECT_EQ(modeOf(folder / "a"), 0700U);
    EXPECT_EQ(modeOf(folder / "a/b/c"), 0700U);
    files::writeAtomically(folder / "a/b/c/f", bytes("text"));
    EXPECT_EQ(modeOf(folder / "a/b/c/f"), 0600U);
    EXPECT_EQ(files::read(folder / "a/b/c/f"), bytes("text"));
    files::makeDirectories(folder / "a/b/c");
}

TEST(Files, MissingFileIsToldApartFromUnreadableOne) {
    const test_support::TempFolder folder;
    EXPECT_EQ(files::read(folder / "none"), std::nullopt);
    EXPECT_THROW(files::read(folder.path()), ApiError);
    folder.write("big", std::string(11, 'x'));
    EXPECT_THROW(files::read(folder / "big", 10), ApiError);
    EXPECT_EQ(files::entries(folder / "none").size(), 0U);
}

TEST(Files, FullDiskLeavesTheOldContentsAndNothingElse) {
    const test_support::TempFolder folder;
    files::writeAtomically(folder / "f", bytes("old"));
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{100, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    try {
        files::writeAtomically(folder / "f", klunortredi::csp::Bytes(1000, 1));
        ADD_FAILURE() << "wrote more than the limit";
    } catch (const ApiError& e) {
        EXPECT_EQ(e.code(), capi::ERROR_DISK_FULL);
    }
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(files::read(folder / "f"), bytes("old"));
    EXPECT_EQ(folder.count(), 1U);
    EXPECT_EQ(files::errorCode(ENOSPC), capi::ERROR_DISK_FULL);
}

TEST(Files, DirectoryThatCannotBeOpenedToBeSyncedRefusesTheChange) {
    const test_support::TempFolder folder;
    files::writeAtomically(folder / "f", bytes("old"));
    {
        const test_support::OpenFileLimit one(1);
        EXPECT_THROW(files::writeAtomically(folder / "f", bytes("new")), ApiError);
    }
    EXPECT_EQ(files::read(folder / "f"), bytes("old"));
    EXPECT_EQ(folder.count(), 1U);
}

TEST(Files, LockThatIsNotReleasedIsGivenUpAndItsHolderNamed) {
    const test_support::TempFolder folder;
    const auto lock = files::Lock::tryTake(folder.path());
    ASSERT_TRUE(lock);
    ::setenv("KLUNORTREDI_NOTICES", "1", 1); // as the commands do
    testing::internal::CaptureStderr();
    try {
        const files::Lock second(folder.path(), std::chrono::milliseconds(20));
        ADD_FAILURE() << "two holders";
    } catch (const ApiError& e) {
        EXPECT_EQ(e.code(), capi::ERROR_BUSY);
    }
    ::unsetenv("KLUNORTREDI_NOTICES");
    std::string command = test_support::readFile("/proc/self/comm");
    command.pop_back();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("process " + std::to_string(::getpid()) + " (" + command + ") keeps the lock on " +
                                   folder.path()));
}

TEST(Files, LockEndsWithItsOwnerAndNotWithAChildForkedMeanwhile) {
    const test_support::TempFolder folder;
    auto lock = files::Lock::tryTake(folder.path());
    const pid_t child = ::fork();
    if (child == 0) {
        lock.reset();
        ::pause();
        ::_exit(0);
    }
    EXPECT_FALSE(files::Lock::tryTake(folder.path())) << "the child's copy takes it from nobody";
    lock.reset();
    EXPECT_TRUE(files::Lock::tryTake(folder.path()));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

TEST(Files, PresenceIsSeenUntilItEndsAndHindersNoLock) {
    const test_support::TempFolder folder;
    EXPECT_FALSE(files::Presence::any(folder.path()));
    {
        const files::Presence one(folder.path());
        const files::Presence other(folder.path());
        EXPECT_TRUE(files::Presence::any(folder.path()));
        EXPECT_TRUE(files::Lock::tryTake(folder.path()));
    }
    EXPECT_FALSE(files::Presence::any(folder.path()));
    const pid_t child = ::fork();
    if (child == 0) {
        const files::Presence killed(folder.path());
        ::raise(SIGKILL);
    }
    ::waitpid(child, nullptr, 0);
    EXPECT_FALSE(files::Presence::any(folder.path())) << "a dead process is not present";
}

TEST(Files, WhatAKilledWriterLeftIsRemoved) {
    const test_support::TempFolder folder;
    folder.write(".tmp-abc123", "half");
    folder.write("kept", "whole");
    files::removeStaleTemporaries(folder.path());
    EXPECT_EQ(folder.count(), 1U);
    EXPECT_TRUE(folder.has("kept"));
}

TEST(Files, LockExcludesOthersUntilItGoes) {
    const test_support::TempFolder folder;
    {
        const files::Lock lock(folder.path());
        EXPECT_FALSE(files::Lock::tryTake(folder.path()));
    }
    EXPECT_TRUE(files::Lock::tryTake(folder.path()));
    EXPECT_THROW(files::Lock(folder / "none"), ApiError);
}

TEST(CertificateArgument, IsAsLongAsItsHeaderSays) {
    using klunortredi::csp::certificateArgument;
    const klunortredi::csp::Bytes small{0x30, 0x02, 0x05, 0x00, 0xAA};
    EXPECT_EQ(certificateArgument(small.data()).size(), 4U);
    const klunortredi::csp::Bytes large{0x30, 0x82, 0x01, 0x00};
    EXPECT_EQ(certificateArgument(large.data()).size(), 260U);
    for (const klunortredi::csp::Bytes& bad :
         {klunortredi::csp::Bytes{0x31, 0x02}, klunortredi::csp::Bytes{0x30, 0x80}, klunortredi::csp::Bytes{0x30, 0x85},
          klunortredi::csp::Bytes{0x30, 0x83, 0xFF, 0xFF, 0xFF},
          klunortredi::csp::Bytes{0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFF}}) {
        EXPECT_THROW(certificateArgument(bad.data()), ApiError);
    }
}

} // namespace csp_keys
