// PINs asked for on a terminal: what a person types and sees.

#include "cli/workplace.hpp"

#include <gmock/gmock.h>

#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>

namespace cli_test {
namespace {

using testing::HasSubstr;
using testing::Not;

/// `klunortredi WORDS...` on a terminal of its own.
class Terminal {
public:
    Terminal(const Workplace& place, std::vector<std::string> words) {
        words.insert(words.begin(), KLUNORTREDI);
        child_ = ::forkpty(&screen_, nullptr, nullptr, nullptr);
        if (child_ == 0) {
            ::setenv("KLUNORTREDI_HOME", place.home().c_str(), 1);
            std::vector<char*> arguments;
            for (std::string& word : words) {
                arguments.push_back(word.data());
            }
            arguments.push_back(nullptr);
            if (::chdir(place.folder().path().c_str()) == 0) {
                ::execv(arguments.front(), arguments.data());
            }
            ::_exit(127);
        }
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() { ::close(screen_); }

    /// Types `keys` as soon as `prompt` stands on the screen.
    void answer(const std::string& prompt, const std::string& keys) {
        while (shown_.find(prompt) == std::string::npos && read()) {
        }
        EXPECT_THAT(shown_, HasSubstr(prompt));
        EXPECT_EQ(::write(screen_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    /// Its exit code; -1 when a signal ended it.
    int end() {
        // The kernel keeps the terminal's state as long as this side is open.
        while (read()) {
        }
        int status = 0;
        ::waitpid(child_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    [[nodiscard]] bool echoes() const {
        termios state{};
        return ::tcgetattr(screen_, &state) == 0 && (state.c_lflag & ECHO) != 0;
    }
    [[nodiscard]] const std::string& shown() const noexcept { return shown_; }

private:
    bool read() {
        std::array<char, 4096> buffer{};
        const ssize_t got = ::read(screen_, buffer.data(), buffer.size());
        shown_.append(buffer.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
        return got > 0;
    }

    int screen_ = -1;
    pid_t child_ = -1;
    std::string shown_;
};

class OnATerminal : public testing::Test {
protected:
    OnATerminal() { place_.makeSigner("one"); }

    Workplace place_;
    const std::vector<std::string> sign_{"sign", "report.txt", "--cert", "Signer one"};
};

TEST_F(OnATerminal, APinTypedAtOnceIsTakenAndNeverShown) {
    Terminal terminal(place_, sign_);
    terminal.answer("PIN for container one: ", std::string(pinOf) + "\n");
    EXPECT_EQ(terminal.end(), 0) << terminal.shown();
    EXPECT_THAT(terminal.shown(), Not(HasSubstr(pinOf)));
    EXPECT_TRUE(terminal.echoes());
}

TEST_F(OnATerminal, AWrongPinIsAskedForAgainWithTheTriesLeft) {
    Terminal terminal(place_, sign_);
    terminal.answer("PIN for container one: ", "00000000\n");
    terminal.answer("9 tries left", std::string(pinOf) + "\n");
    EXPECT_EQ(terminal.end(), 0) << terminal.shown();
}

TEST_F(OnATerminal, CtrlCCtrlDAndAnEmptyAnswerCancelAndLeaveTheTerminalAsItWas) {
    for (const char* keys : {"\x03", "123\x03", "\x04", "\n"}) {
        Terminal terminal(place_, sign_);
        terminal.answer("PIN for container one: ", keys);
        EXPECT_EQ(terminal.end(), 5) << terminal.shown();
        EXPECT_THAT(terminal.shown(), HasSubstr("cancelled"));
        EXPECT_TRUE(terminal.echoes());
        EXPECT_FALSE(place_.folder().has("report.txt.sig"));
    }
}

TEST_F(OnATerminal, AContainerIsDeletedOnlyAfterAYes) {
    for (const char* answer : {"n\n", "\n", "no\n", "yess\n"}) {
        Terminal terminal(place_, {"containers", "delete", "one"});
        terminal.answer("for good? [y/N] ", answer);
        EXPECT_EQ(terminal.end(), 5) << terminal.shown();
        EXPECT_EQ(place_.json({"containers"})["containers"].size(), 1U) << answer;
    }
    Terminal terminal(place_, {"containers", "delete", "one"});
    terminal.answer("for good? [y/N] ", "y\n");
    EXPECT_EQ(terminal.end(), 0) << terminal.shown();
    EXPECT_EQ(place_.json({"containers"})["containers"].size(), 0U);
}

TEST_F(OnATerminal, WithoutOneDeletingAContainerRequiresYes) {
    const auto deleting = [&](const std::vector<std::string>& more) {
        std::vector<std::string> words{"setsid", "-w", KLUNORTREDI, "containers", "delete", "one"};
        words.insert(words.end(), more.begin(), more.end());
        RunOptions options;
        options.environment = {{"KLUNORTREDI_HOME", place_.home()}};
        return test_support::run(words, options);
    };
    const Outcome refused = deleting({});
    EXPECT_EQ(refused.exit, 2);
    EXPECT_THAT(refused.err, HasSubstr("--yes"));
    EXPECT_EQ(place_.json({"containers"})["containers"].size(), 1U);
    EXPECT_EQ(deleting({"--yes"}).exit, 0);
}

} // namespace
} // namespace cli_test
