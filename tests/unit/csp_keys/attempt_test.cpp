// Attempts at a PIN that overlap, and those that cannot be counted.

#include "core/error.hpp"
#include "core/files.hpp"
#include "keys/container.hpp"
#include "service.hpp"

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

/// What creating a temporary file of that name fails with; 0 lets it through.
std::atomic<int> errorOfNewFiles{0}; // NOLINT

} // namespace

/// Takes the place of the C library's function in this program.
extern "C" int mkostemp(char* name, int flags) {
    static const auto real = reinterpret_cast<int (*)(char*, int)>(::dlsym(RTLD_NEXT, "mkostemp"));
    if (errorOfNewFiles != 0) {
        errno = errorOfNewFiles;
        return -1;
    }
    return real(name, flags);
}

namespace csp_keys {

using klunortredi::csp::ApiError;
using klunortredi::csp::Container;
using klunortredi::csp::pinTryLimit;
namespace files = klunortredi::csp::files;
namespace fs = std::filesystem;

namespace {

constexpr DWORD gost = capi::PROV_GOST_2012_256;

class Attempts : public ServiceTest {
protected:
    Attempts() { makeContainer(gost, L"c", "1234"); }
    ~Attempts() override { errorOfNewFiles = 0; }
    [[nodiscard]] fs::path place() const { return home_ / "containers/c.80"; }
    [[nodiscard]] std::string tries() const { return test_support::readFile(place() / "tries"); }
    void writeTries(const std::string& text) const { files::writeAtomically(place() / "tries", bytes(text)); }
    /// The error code; 0 when the PIN opens the container.
    static DWORD outcomeOf(const std::string& pin) {
        try {
            Container::open({"c", gost}).unlock(pin);
            return 0;
        } catch (const ApiError& error) {
            return error.code();
        }
    }
    /// Runs `action`, with the container's lock held, while an attempt with that PIN is under way; its outcome. The
    /// machine may be too busy to see the attempt: tried again then.
    template <class Action>
    DWORD whileJudging(const std::string& pin, Action action) const {
        for (int round = 0; round < 10; ++round) {
            DWORD outcome = 0;
            std::atomic<bool> ended{false};
            std::thread attempt([&] {
                outcome = outcomeOf(pin);
                ended = true;
            });
            bool acted = false;
            while (!acted && !ended) {
                if (tries() == "0 1\n") {
                    const auto held = files::Lock::tryTake(place());
                    acted = held && tries() == "0 1\n";
                    if (acted) {
                        action();
                    }
                }
            }
            attempt.join();
            if (acted) {
                return outcome;
            }
            writeTries("0 0\n");
        }
        throw std::runtime_error("the lock was never free while a key was derived");
    }
};

} // namespace

TEST_F(Attempts, KeyIsDerivedWhileTheLockIsFree) {
    EXPECT_EQ(whileJudging("1234", [] {}), 0U);
    EXPECT_EQ(tries(), "0 0\n");
}

TEST_F(Attempts, AnswerIsNotGivenAfterTheContainerLockedMeanwhile) {
    for (const char* pin : {"wrong", "1234"}) {
        writeTries("0 0\n");
        EXPECT_EQ(whileJudging(pin, [this] { writeTries("10 1\n"); }), capi::SCARD_W_CHV_BLOCKED) << pin;
        EXPECT_EQ(tries(), "10 1\n");
    }
}

TEST_F(Attempts, AtTheSameTimeGetNoMoreAnswersThanTheLimit) {
    writeTries("9 0\n");
    std::vector<DWORD> outcomes(4);
    std::vector<std::thread> guessers;
    for (DWORD& outcome : outcomes) {
        guessers.emplace_back([&outcome] { outcome = outcomeOf("wrong"); });
    }
    for (std::thread& guesser : guessers) {
        guesser.join();
    }
    EXPECT_EQ(std::ranges::count(outcomes, capi::SCARD_W_WRONG_CHV), 1);
    EXPECT_EQ(std::ranges::count(outcomes, capi::SCARD_W_CHV_BLOCKED), 3);
}

TEST_F(Attempts, PinChangedMeanwhileIsJudgedAnew) {
    const fs::path old = home_ / "old";
    const fs::path changed = home_ / "changed";
    fs::copy(place(), old);
    Container container = Container::open({"c", gost});
    container.changePin(container.unlock("1234"), "new");
    fs::copy(place(), changed);
    const auto become = [this](const fs::path& state) {
        for (const auto& file : fs::directory_iterator(state)) {
            if (file.path().filename() != "tries") {
                fs::copy_file(file.path(), place() / file.path().filename(), fs::copy_options::overwrite_existing);
            }
        }
    };
    become(old);
    EXPECT_EQ(whileJudging("1234", [&] { become(changed); }), capi::SCARD_W_WRONG_CHV);
    EXPECT_EQ(tries(), "1 0\n") << "one attempt, at the PIN that holds";
}

TEST_F(Attempts, ThoseOfLivingProcessesDoNotLockTheContainer) {
    writeTries("0 100\n");
    std::optional<files::Presence> other(place());
    EXPECT_EQ(Container::open({"c", gost}).triesRemaining(), pinTryLimit);
    DWORD outcome = 1;
    std::thread waiting([&] { outcome = outcomeOf("1234"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    {
        const files::Lock judged(place());
        EXPECT_EQ(tries(), "0 100\n") << "it waits for one of them to be judged";
        writeTries("0 99\n");
        other.reset();
    }
    waiting.join();
    EXPECT_EQ(outcome, 0U);
    writeTries("0 100\n");
    EXPECT_EQ(outcomeOf("1234"), capi::SCARD_W_CHV_BLOCKED) << "nobody is left who could be judged";
}

/// In a process of its own: one wrong PIN there ends all its tries.
class AttemptsWithoutCount : public Attempts, public testing::WithParamInterface<int> {};

TEST_P(AttemptsWithoutCount, EndWithOneWrongPin) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::setenv("KLUNORTREDI_NOTICES", "1", 1);
        testing::internal::CaptureStderr();
        errorOfNewFiles = GetParam();
        Container container = Container::open({"c", gost});
        bool good = outcomeOf("1234") == 0 && outcomeOf("1234") == 0;
        try {
            container.unlock("wrong");
            good = false;
        } catch (const ApiError& error) {
            good = good && error.code() == capi::SCARD_W_WRONG_CHV && container.triesRemaining() == 0;
        }
        good = good && outcomeOf("wrong") == capi::SCARD_W_CHV_BLOCKED;
        good = good && outcomeOf("1234") == capi::SCARD_W_CHV_BLOCKED;
        const std::string warning = testing::internal::GetCapturedStderr();
        good = good && std::ranges::count(warning, '\n') == 1 && warning.find("container c") != std::string::npos;
        errorOfNewFiles = 0;
        good = good && outcomeOf("1234") == 0; // where it can be counted, it is
        ::_exit(good ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

INSTANTIATE_TEST_SUITE_P(Reasons, AttemptsWithoutCount, testing::Values(EROFS, EACCES));

TEST_F(Attempts, WhoseCountDoesNotFitOnTheDiskAreRefused) {
    errorOfNewFiles = ENOSPC;
    EXPECT_EQ(outcomeOf("1234"), capi::ERROR_DISK_FULL);
}

} // namespace csp_keys
