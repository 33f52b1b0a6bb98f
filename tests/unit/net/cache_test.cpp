#include "net/cache.hpp"

#include "cache_entry.hpp"
#include "environment.hpp"
#include "support/temp_folder.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using klunortredi::net::Cache;
using klunortredi::net::CacheLimits;
using klunortredi::net::ErrorKind;
using klunortredi::net::NetworkError;
using net_test::Variable;
using test_support::TempFolder;
using testing::AllOf;
using testing::Gt;
using testing::Le;

std::time_t in(std::time_t seconds) {
    return std::time(nullptr) + seconds;
}

/// A download that counts its calls.
struct Source {
    std::string octets = "octets";
    std::time_t validity = 3600;
    std::atomic<int> calls{0};

    std::function<Cache::Download()> download() {
        return [this] {
            ++calls;
            return Cache::Download{octets, in(validity)};
        };
    }
};

std::vector<fs::path> entries(const fs::path& folder) {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (!entry.path().filename().string().starts_with("lock-")) {
            found.push_back(entry.path());
        }
    }
    return found;
}

class CacheTest : public testing::Test {
protected:
    /// Writes the entry as it is.
    void put(const std::string& key, const klunortredi::net::CacheEntry& entry) const {
        fs::create_directories(folder_);
        std::ofstream(folder_ / klunortredi::net::digestText(key), std::ios::binary)
            << klunortredi::net::encodeEntry(entry);
    }

    TempFolder temp_;
    fs::path folder_ = fs::path(temp_.path()) / "deep" / "cache";
    Source source_;
};

TEST_F(CacheTest, KeepsADownloadForItsValidity) {
    const Cache cache(folder_);
    EXPECT_EQ(cache.find("key"), std::nullopt);
    EXPECT_EQ(cache.obtain("key", source_.download()), "octets");
    EXPECT_EQ(cache.obtain("key", source_.download()), "octets");
    EXPECT_EQ(source_.calls, 1);
    EXPECT_EQ(Cache(folder_).find("key"), "octets");
    EXPECT_EQ(cache.find("other"), std::nullopt);
    source_.validity = -1;
    cache.obtain("other", source_.download());
    cache.obtain("other", source_.download());
    EXPECT_EQ(source_.calls, 3);
}

TEST_F(CacheTest, ForgetsWhatIsNoLongerValid) {
    const Cache cache(folder_);
    put("key", {in(-100), in(100), "octets", {}});
    EXPECT_EQ(cache.find("key"), "octets");
    put("key", {in(-100), in(0), "octets", {}});
    EXPECT_EQ(cache.find("key"), std::nullopt);
    put("key", {in(86400), in(2 * 86400), "octets", {}}); // by a clock that was wrong
    EXPECT_EQ(cache.find("key"), std::nullopt);
    CacheLimits limits; // an issuer may replace its list earlier
    limits.longestValidity = 0s;
    Cache(folder_, limits).store("long", {"octets", in(86400)});
    EXPECT_EQ(cache.find("long"), std::nullopt);
}

TEST_F(CacheTest, IsReadableByItsUserOnly) {
    Cache(folder_).store("key", {"octets", in(60)});
    struct stat status {};
    ASSERT_EQ(::stat(folder_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
    ASSERT_EQ(entries(folder_).size(), 1U);
    ASSERT_EQ(::stat(entries(folder_).front().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(CacheTest, DoesNotUseAFolderIntoWhichOthersWrite) {
    const Cache cache(folder_);
    cache.store("key", {"octets", in(60)});
    fs::permissions(folder_, fs::perms::others_write, fs::perm_options::add);
    EXPECT_EQ(cache.find("key"), std::nullopt);
    EXPECT_EQ(cache.obtain("key", source_.download()), "octets");
    EXPECT_EQ(source_.calls, 1);
}

TEST_F(CacheTest, IgnoresDamagedEntries) {
    const Cache cache(folder_);
    cache.store("key", {"octets", in(60)});
    const auto file = entries(folder_).front();
    std::string octets;
    {
        std::ifstream in(file, std::ios::binary);
        octets.assign(std::istreambuf_iterator<char>(in), {});
    }
    for (std::size_t i = 0; i < octets.size(); ++i) {
        std::string changed = octets;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        EXPECT_FALSE(klunortredi::net::decodeEntry(changed)) << i;
        EXPECT_FALSE(klunortredi::net::decodeEntry(octets.substr(0, i))) << i;
    }
    std::ofstream(file, std::ios::binary) << octets.substr(0, octets.size() - 1);
    EXPECT_EQ(cache.find("key"), std::nullopt);
    std::ofstream(file, std::ios::binary) << octets;
    EXPECT_EQ(cache.find("key"), "octets");
    fs::remove(file);
    fs::create_symlink("/etc/passwd", file);
    EXPECT_EQ(cache.obtain("key", source_.download()), "octets");
    EXPECT_EQ(cache.find("key"), "octets");
    EXPECT_FALSE(fs::is_symlink(file));
    fs::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(cache.find("key"), std::nullopt);
}

TEST_F(CacheTest, WorksWithoutAFolder) {
    for (const fs::path& folder : {fs::path(), fs::path("/proc/none/cache"), fs::path("/dev/null/cache")}) {
        Source source;
        EXPECT_EQ(Cache(folder).obtain("key", source.download()), "octets");
        EXPECT_EQ(Cache(folder).obtain("key", source.download()), "octets");
        EXPECT_EQ(source.calls, 2);
    }
}

TEST_F(CacheTest, RemembersAFailureForAShortTime) {
    const Cache cache(folder_);
    int calls = 0;
    const auto failing = [&]() -> Cache::Download {
        ++calls;
        throw NetworkError(ErrorKind::status, "http://x/", "HTTP status 500 (text/html)", 500, "text/html");
    };
    for (int i = 0; i < 2; ++i) {
        try {
            cache.obtain("key", failing);
            FAIL() << "nothing was thrown";
        } catch (const NetworkError& e) {
            EXPECT_EQ(e.kind(), ErrorKind::status);
            EXPECT_STREQ(e.what(), "http://x/: HTTP status 500 (text/html)");
            EXPECT_EQ(e.httpStatus(), 500);
            EXPECT_EQ(e.mediaType(), "text/html");
            EXPECT_EQ(e.url(), "http://x/");
        }
    }
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(cache.find("key"), std::nullopt);
    const auto kept = klunortredi::net::decodeEntry(test_support::readFile(entries(folder_).front()));
    ASSERT_TRUE(kept && kept->failure);
    EXPECT_THAT(kept->validUntil, AllOf(Gt(in(0)), Le(in(60))));
    put("key", {in(-61), in(-1), {}, kept->failure});
    EXPECT_EQ(cache.obtain("key", source_.download()), "octets");
}

TEST_F(CacheTest, DoesNotRememberWhatDependsOnTheCaller) {
    const Cache cache(folder_);
    for (const auto kind : {ErrorKind::address, ErrorKind::library, ErrorKind::request}) {
        EXPECT_THROW(cache.obtain("key", [&]() -> Cache::Download { throw NetworkError(kind, "http://x/", "no"); }),
                     NetworkError);
        EXPECT_EQ(cache.obtain("key" + std::to_string(static_cast<int>(kind)), source_.download()), "octets");
    }
    EXPECT_THROW(cache.obtain("key", []() -> Cache::Download { throw std::logic_error("not a list"); }),
                 std::logic_error);
    EXPECT_EQ(cache.obtain("key", source_.download()), "octets");
}

TEST_F(CacheTest, EvictsTheOldestEntries) {
    CacheLimits limits;
    limits.entries = 3;
    const Cache cache(folder_, limits);
    for (int i = 0; i < 5; ++i) {
        cache.store("key" + std::to_string(i), {"octets", in(60)});
        for (const auto& file : entries(folder_)) { // as if written ten seconds earlier
            fs::last_write_time(file, fs::last_write_time(file) - 10s);
        }
    }
    EXPECT_EQ(entries(folder_).size(), 3U);
    EXPECT_EQ(cache.find("key1"), std::nullopt);
    EXPECT_EQ(cache.find("key2"), "octets");
    EXPECT_EQ(cache.find("key4"), "octets");
}

TEST_F(CacheTest, KeepsItsSize) {
    CacheLimits limits;
    limits.totalOctets = 3000;
    limits.entryOctets = 2000;
    const Cache cache(folder_, limits);
    for (int i = 0; i < 10; ++i) {
        cache.store("key" + std::to_string(i), {std::string(1000, 'x'), in(60)});
    }
    std::size_t total = 0;
    for (const auto& file : entries(folder_)) {
        total += fs::file_size(file);
    }
    EXPECT_LE(total, 3000U);
    EXPECT_GT(total, 1000U);
    cache.store("large", {std::string(2001, 'x'), in(60)});
    EXPECT_EQ(cache.find("large"), std::nullopt);
}

TEST_F(CacheTest, MakesOneDownloadForManyThreads) {
    const Cache cache(folder_);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            EXPECT_EQ(cache.obtain("key",
                                   [&] {
                                       std::this_thread::sleep_for(50ms);
                                       return source_.download()();
                                   }),
                      "octets");
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(source_.calls, 1);
}

TEST_F(CacheTest, MakesOneDownloadForManyProcesses) {
    const std::string count = temp_ / "count";
    std::vector<pid_t> children;
    for (int i = 0; i < 8; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            const std::string octets = Cache(folder_).obtain("key", [&] {
                std::ofstream(count, std::ios::app) << "x";
                std::this_thread::sleep_for(50ms);
                return Cache::Download{"octets", in(60)};
            });
            ::_exit(octets == "octets" ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(fs::file_size(count), 1U);
}

TEST_F(CacheTest, DoesNotWaitForAStoppedHolderLongerThanItsLimit) {
    CacheLimits limits;
    limits.lockTimeout = 100ms;
    const Cache cache(folder_, limits);
    cache.store("first", {"octets", in(60)});
    std::vector<int> held; // as a process that is stopped holds it
    for (int i = 0; i < 256; ++i) {
        std::array<char, 16> name{};
        std::snprintf(name.data(), name.size(), "lock-%02x", static_cast<unsigned>(i));
        const int file = ::open((folder_ / name.data()).c_str(), O_RDWR | O_CREAT, 0600);
        ASSERT_EQ(::flock(file, LOCK_EX), 0);
        held.push_back(file);
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(cache.obtain("key", source_.download()), "octets");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_EQ(cache.find("key"), "octets");
    for (const int file : held) {
        ::close(file);
    }
}

TEST_F(CacheTest, IsWhereTheEnvironmentSays) {
    {
        const Variable xdg("XDG_CACHE_HOME", temp_ / "xdg");
        Cache::ofUser().store("key", {"octets", in(60)});
        EXPECT_EQ(Cache(temp_ / "xdg/klunortredi").find("key"), "octets");
    }
    const Variable home("HOME", temp_ / "home");
    const Variable relative("XDG_CACHE_HOME", "relative");
    Cache::ofUser().store("key", {"octets", in(60)});
    EXPECT_EQ(Cache(temp_ / "home/.cache/klunortredi").find("key"), "octets");
}

} // namespace
