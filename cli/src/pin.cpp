#include "pin.hpp"

#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/auth_provider.hpp"
#include "orvik/plugin/crypto/i_auth_handle.hpp"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

namespace klunortredi::cli {

namespace {

constexpr std::size_t longestPin = 1024; // octets; a PIN source that never ends is a mistake

/// The first line that a descriptor gives, without its end.
std::string readLine(int fd, const std::string& name) {
    std::string line;
    char c = '\0';
    while (line.size() <= longestPin) {
        const ssize_t got = ::read(fd, &c, 1);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            throw fileFailure("cannot read the PIN from " + name, errno);
        }
        if (got == 0 || c == '\n') {
            break;
        }
        line.push_back(c);
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    if (line.empty() || line.size() > longestPin) {
        throw Failure(ExitCode::input, "cannot read the PIN from " + name,
                      line.empty() ? "its first line is empty" : "its first line is too long");
    }
    return line;
}

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

/// Turns echo off for its life.
class Silence {
public:
    explicit Silence(int fd) : fd_(fd), known_(::tcgetattr(fd, &before_) == 0) {
        if (known_) {
            termios quiet = before_;
            quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
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

/// The answer typed at the terminal; none for Ctrl-D or an empty line. Throws Failure without a terminal.
std::optional<std::string> askTerminal(const std::string& prompt) {
    const Descriptor terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    if (terminal.get() < 0) {
        throw Failure(ExitCode::usage, "cannot ask for the PIN", "there is no terminal",
                      "give it with --pin-file, --pin-env or --pin-fd");
    }
    const auto say = [&](const std::string& text) {
        if (::write(terminal.get(), text.data(), text.size()) < 0) {
            throw fileFailure("cannot ask for the PIN", errno);
        }
    };
    say(prompt);
    std::string line;
    {
        const Silence silence(terminal.get());
        char c = '\0';
        while (line.size() <= longestPin && ::read(terminal.get(), &c, 1) == 1 && c != '\n') {
            line.push_back(c);
        }
    }
    say("\n");
    return line.empty() ? std::nullopt : std::optional(line);
}

} // namespace

PinDialog::PinDialog(const PinOptions& options) : options_(options) {}

PinDialog::~PinDialog() {
    orvik::plugin::crypto::AuthProvider::setDialog({});
}

void PinDialog::install() {
    orvik::plugin::crypto::AuthProvider::setDialog(
        [this](const orvik::plugin::crypto::IAuthHandle& handle, unsigned attempt) -> boost::optional<std::string> {
            const auto pin = answer(orvik::plugin::converter::utf16_to_utf8(handle.container()), attempt);
            return pin ? boost::optional<std::string>(*pin) : boost::none;
        });
}

std::optional<std::string> PinDialog::answer(const std::string& container, unsigned attempt) {
    if (attempt > 0) {
        outcome_ = Outcome::wrong;
    }
    try {
        if (!fromTerminal()) {
            return attempt == 0 ? std::optional(fixedPin()) : std::nullopt;
        }
        std::string prompt = "PIN for container " + container + ": ";
        if (attempt > 0) {
            const auto left = triesLeft_ ? triesLeft_() : std::nullopt;
            prompt =
                "Wrong PIN" + (left ? ", " + std::to_string(*left) + " tries left" : std::string{}) + ". " + prompt;
        }
        auto pin = askTerminal(prompt);
        if (!pin) {
            outcome_ = Outcome::cancelled;
        }
        return pin;
    } catch (const Failure& e) {
        outcome_ = Outcome::noSource;
        sourceFailure_ = e;
        return std::nullopt;
    }
}

std::string PinDialog::ask(const std::string& prompt) {
    if (!fromTerminal()) {
        return fixedPin();
    }
    auto pin = askTerminal(prompt);
    if (!pin) {
        throw Failure(ExitCode::cancelled, "no PIN was given", "cancelled");
    }
    return *pin;
}

std::string PinDialog::askNew(const std::string& container) {
    std::string pin = ask("New PIN for container " + container + ": ");
    if (fromTerminal() && ask("The same PIN again: ") != pin) {
        throw Failure(ExitCode::usage, "no container was made", "the two PINs differ", "try again");
    }
    return pin;
}

void PinDialog::setTriesLeft(std::function<std::optional<unsigned>()> triesLeft) {
    triesLeft_ = std::move(triesLeft);
}

Failure PinDialog::refusal(const std::string& what) const {
    if (outcome_ == Outcome::cancelled) {
        return {ExitCode::cancelled, what, "cancelled"};
    }
    if (outcome_ == Outcome::noSource && sourceFailure_) {
        return *sourceFailure_;
    }
    const auto left = triesLeft_ ? triesLeft_() : std::nullopt;
    if (left == 0U) {
        return {ExitCode::pin, what, "the container is locked after too many wrong PINs",
                "unlock it with 'klunortredi-csp container unlock'"};
    }
    if (left) {
        return {ExitCode::pin, what, "the PIN is wrong, " + std::to_string(*left) + " tries left"};
    }
    return {ExitCode::pin, what, "the PIN is wrong"};
}

bool PinDialog::fromTerminal() const noexcept {
    return options_.file.empty() && options_.environment.empty() && !options_.descriptor;
}

std::string PinDialog::fixedPin() const {
    if (fixedRead_) {
        return fixed_;
    }
    if (!options_.file.empty()) {
        const Descriptor file(::open(options_.file.c_str(), O_RDONLY | O_CLOEXEC));
        if (file.get() < 0) {
            throw fileFailure("cannot read the PIN from " + options_.file, errno);
        }
        fixed_ = readLine(file.get(), options_.file);
    } else if (!options_.environment.empty()) {
        const char* value = std::getenv(options_.environment.c_str());
        if (value == nullptr || *value == '\0') {
            throw Failure(ExitCode::usage, "cannot take the PIN from " + options_.environment,
                          "the variable is not set");
        }
        fixed_ = value;
    } else {
        fixed_ = readLine(*options_.descriptor, "descriptor " + std::to_string(*options_.descriptor));
    }
    fixedRead_ = true;
    return fixed_;
}

} // namespace klunortredi::cli
