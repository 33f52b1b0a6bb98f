#include "pin_source.hpp"

#include "failure.hpp"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace klunortredi::cli {

namespace {

constexpr std::size_t longestSecret = 1024; // octets; a source that never ends is a mistake
constexpr std::size_t longestPin = 255;     // octets, for the service

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    [[nodiscard]] int get() const noexcept { return fd_; }

private:
    int fd_;
};

constexpr char interrupted = '\x03'; // what Ctrl-C sends

/// Turns echo off for its life. Ctrl-C ends the line instead of the process: a process that dies here would leave the
/// terminal without echo.
class Silence {
public:
    explicit Silence(int fd) : fd_(fd), known_(::tcgetattr(fd, &before_) == 0) {
        if (known_) {
            termios quiet = before_;
            quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
            quiet.c_cc[VEOL] = static_cast<cc_t>(interrupted);
            ::tcsetattr(fd_, TCSAFLUSH, &quiet);
        }
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence() {
        if (known_) {
            ::tcsetattr(fd_, TCSAFLUSH, &before_);
        }
    }

private:
    int fd_;
    termios before_{};
    bool known_;
};

} // namespace

PinSource::PinSource(const PinOptions& options, std::string word, std::string option)
    : options_(options), word_(std::move(word)), option_(std::move(option)) {}

bool PinSource::fromTerminal() const noexcept {
    return options_.file.empty() && options_.environment.empty() && !options_.descriptor;
}

std::optional<std::string> PinSource::answer(const std::string& prompt) {
    return fromTerminal() ? askTerminal(prompt) : std::optional(fixed());
}

std::string PinSource::ask(const std::string& prompt) {
    auto secret = answer(prompt);
    if (!secret) {
        throw Failure(ExitCode::cancelled, "no " + word_ + " was given", "cancelled");
    }
    return *std::move(secret);
}

std::string PinSource::askNew(const std::string& prompt) {
    std::string secret = ask(prompt);
    if (fromTerminal() && ask("The same " + word_ + " again: ") != secret) {
        throw Failure(ExitCode::usage, "the " + word_ + " was not set", "the two answers differ", "try again");
    }
    return secret;
}

std::string PinSource::fixed() {
    if (fixed_) {
        return *fixed_;
    }
    if (!options_.file.empty()) {
        const Descriptor file(::open(options_.file.c_str(), O_RDONLY | O_CLOEXEC));
        if (file.get() < 0) {
            throw fileFailure("cannot read the " + word_ + " from " + options_.file, errno);
        }
        fixed_ = readLine(file.get(), options_.file);
    } else if (!options_.environment.empty()) {
        const char* value = std::getenv(options_.environment.c_str());
        if (value == nullptr || *value == '\0') {
            throw Failure(ExitCode::usage, "cannot take the " + word_ + " from " + options_.environment,
                          "the variable is not set");
        }
        fixed_ = value;
    } else {
        fixed_ = readLine(*options_.descriptor, "descriptor " + std::to_string(*options_.descriptor));
    }
    return *fixed_;
}

/// The first line that a descriptor gives, without its end.
std::string PinSource::readLine(int fd, const std::string& name) const {
    std::string line;
    char c = '\0';
    while (line.size() <= longestSecret) {
        const ssize_t got = ::read(fd, &c, 1);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            throw fileFailure("cannot read the " + word_ + " from " + name, errno);
        }
        if (got == 0 || c == '\n') {
            break;
        }
        line.push_back(c);
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    if (line.empty() || line.size() > longestSecret) {
        throw Failure(ExitCode::input, "cannot read the " + word_ + " from " + name,
                      line.empty() ? "its first line is empty" : "its first line is too long");
    }
    return line;
}

/// The answer typed at the terminal; none for Ctrl-C, Ctrl-D or an empty line. Throws Failure without a terminal.
std::optional<std::string> PinSource::askTerminal(const std::string& prompt) const {
    const Descriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    if (terminal.get() < 0) {
        throw Failure(ExitCode::usage, "cannot ask for the " + word_, "there is no terminal",
                      "give it with " + option_ + "-file, " + option_ + "-env or " + option_ + "-fd");
    }
    const auto say = [&](const std::string& text) {
        if (::write(terminal.get(), text.data(), text.size()) < 0) {
            throw fileFailure("cannot ask for the " + word_, errno);
        }
    };
    std::string line;
    {
        const Silence silence(terminal.get()); // before the prompt: what answers the prompt must not be echoed
        say(prompt);
        char c = '\0';
        while (line.size() <= longestSecret && ::read(terminal.get(), &c, 1) == 1 && c != '\n' && c != interrupted) {
            line.push_back(c);
        }
        if (c == interrupted) {
            line.clear();
        }
    }
    say("\n");
    return line.empty() ? std::nullopt : std::optional(line);
}

std::string checkedPin(std::string pin) {
    if (pin.size() > longestPin) {
        throw Failure(ExitCode::usage, "cannot use the PIN",
                      "it has " + std::to_string(pin.size()) + " octets, the service takes at most " +
                          std::to_string(longestPin));
    }
    if (pin.find('\0') != std::string::npos) {
        throw Failure(ExitCode::usage, "cannot use the PIN", "it holds a zero octet, which would end it");
    }
    return pin;
}

} // namespace klunortredi::cli
