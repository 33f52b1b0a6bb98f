#include "input.hpp"

#include "failure.hpp"
#include "orvik/plugin/base64.hpp"
#include "printable.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <streambuf>
#include <utility>
#include <vector>

namespace klunortredi::cli {

namespace {

constexpr std::size_t bufferSize = std::size_t{256} * 1024;
constexpr std::size_t sniffed = 4096; // octets that tell Base64 from anything else
constexpr std::string_view armorStart = "-----BEGIN ";
constexpr std::string_view armorEnd = "-----";
constexpr std::size_t longestLine = 128; // octets of a line that tell whether it begins or ends a block
constexpr std::size_t mostBlocks = 8;    // whose labels are kept

bool isBase64(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/' ||
           c == '=';
}

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool hasText(std::string_view text) {
    return !std::all_of(text.begin(), text.end(), isBlank);
}

/// The label of a line "-----BEGIN label-----".
std::string labelOf(std::string_view line) {
    line.remove_prefix(std::min(line.size(), armorStart.size()));
    return std::string(line.substr(0, line.find(armorEnd)));
}

enum class Coding { binary, pem, base64 };

/// Where the armour starts whose label ends in `label`, else the first of any label; npos without any. Text goes before
/// it as openssl writes it, which may be long.
std::size_t findArmor(std::string_view text, std::string_view label) {
    std::size_t first = std::string_view::npos;
    for (auto at = text.find(armorStart); at != std::string_view::npos; at = text.find(armorStart, at + 1)) {
        if (at > 0 && text[at - 1] != '\n') {
            continue;
        }
        first = std::min(first, at);
        const auto from = at + armorStart.size();
        if (text.substr(from, text.find(armorEnd, from) - from).ends_with(label)) {
            return at;
        }
    }
    return first;
}

/// DER and BER of everything we read start with a SEQUENCE (0x30), whose Base64 starts with 'M'.
Coding codingOf(std::string_view head, bool armored) {
    if (!head.empty() && head.front() == '\x30' && (head.size() < 2 || !isBase64(head[1]) || head[1] == '0')) {
        return Coding::binary;
    }
    if (armored) {
        return Coding::pem;
    }
    head = head.substr(0, sniffed);
    const auto first = std::find_if_not(head.begin(), head.end(), isBlank);
    const bool text = std::all_of(first, head.end(), [](char c) { return isBase64(c) || isBlank(c); });
    return first != head.end() && *first == 'M' && text ? Coding::base64 : Coding::binary;
}

} // namespace

/// The file descriptor as a stream buffer, with room to look ahead.
class Input::Descriptor : public std::streambuf {
public:
    Descriptor(int fd, std::uint64_t size)
        : fd_(fd), size_(size), room_(roomFor(size)), buffer_(std::make_unique_for_overwrite<char[]>(room_)) {
        setg(buffer_.get(), buffer_.get(), buffer_.get());
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() override {
        if (fd_ != STDIN_FILENO) {
            ::close(fd_);
        }
    }

    /// Fills the buffer up to `most` octets without consuming; fewer only at the end.
    std::string_view ahead(std::size_t most) {
        most = std::min(most, room_);
        while (static_cast<std::size_t>(egptr() - gptr()) < most && fill()) {
        }
        return {gptr(), std::min(most, static_cast<std::size_t>(egptr() - gptr()))};
    }

    Watcher watcher;
    [[nodiscard]] int error() const noexcept { return error_; }
    /// Whether a file had more octets than when it was opened; the octets end there.
    [[nodiscard]] bool grew() const noexcept { return size_ != 0 && taken_ > size_; }
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }
    bool status(struct stat& status) const noexcept { return ::fstat(fd_, &status) == 0; }

protected:
    int_type underflow() override {
        if (gptr() == egptr() && !fill()) {
            return traits_type::eof();
        }
        return traits_type::to_int_type(*gptr());
    }

private:
    /// A small file needs no more than itself, and an octet by which it is seen to end.
    static std::size_t roomFor(std::uint64_t size) {
        return size == 0 ? bufferSize : static_cast<std::size_t>(std::min<std::uint64_t>(size + 1, bufferSize));
    }

    /// Reads once more behind what is left; false at the end or on an error.
    bool fill() {
        if (grew()) {
            return false;
        }
        const auto left = static_cast<std::size_t>(egptr() - gptr());
        std::memmove(buffer_.get(), gptr(), left);
        setg(buffer_.get(), buffer_.get(), buffer_.get() + left);
        ssize_t got = 0;
        do {
            got = ::read(fd_, buffer_.get() + left, room_ - left);
        } while (got < 0 && errno == EINTR);
        if (got < 0) {
            error_ = errno;
        }
        if (got <= 0) {
            return false;
        }
        taken_ += static_cast<std::uint64_t>(got);
        if (grew()) {
            return false;
        }
        setg(buffer_.get(), buffer_.get(), buffer_.get() + left + got);
        if (watcher) {
            watcher(static_cast<std::uint64_t>(got));
        }
        return true;
    }

    int fd_;
    std::uint64_t size_;
    std::uint64_t taken_ = 0; ///< octets read
    int error_ = 0;
    std::size_t room_;
    std::unique_ptr<char[]> buffer_;
};

/// Takes PEM lines and Base64 off, piece by piece.
class Input::Armor : public std::streambuf {
public:
    Armor(std::streambuf& source, bool pem) : source_(source), pem_(pem), started_(!pem) {}

    /// The first decoded octets, at most one buffer.
    std::string_view ahead(std::size_t most) {
        underflow();
        return {gptr(), std::min(most, static_cast<std::size_t>(egptr() - gptr()))};
    }

    [[nodiscard]] const std::string& label() const noexcept { return label_; }
    /// Whether characters were met that are not Base64; there the octets end.
    [[nodiscard]] bool damaged() const noexcept { return damaged_; }
    /// Whether the octets ended elsewhere than at a line "-----END label-----" with the label of the first line.
    [[nodiscard]] bool lacksEnd() const noexcept { return lacksEnd_; }

    /// Reads on from the last line of the block.
    void readRest(Surroundings& around) {
        if (!pem_) {
            return;
        }
        around.textAfter = textAfterEnd_;
        std::string line;
        bool inside = false;
        while (nextLine(line)) {
            if (line.starts_with(armorStart)) {
                inside = true;
                if (around.blocks.size() < mostBlocks) {
                    around.blocks.push_back(labelOf(line));
                } else {
                    around.moreBlocks = true;
                }
            } else if (inside) {
                inside = !line.starts_with("-----END ");
            } else {
                around.textAfter = around.textAfter || hasText(line);
            }
        }
    }

protected:
    int_type underflow() override {
        if (gptr() != egptr()) {
            return traits_type::to_int_type(*gptr());
        }
        if (!started_) {
            skipToBody();
        }
        if (ended_) {
            return traits_type::eof();
        }
        std::string quads;
        while (quads.size() < bufferSize / 4 * 4) {
            const int c = source_.sbumpc();
            if (c == traits_type::eof() || (pem_ && c == '-')) {
                ended_ = true;
                lacksEnd_ = pem_ && (c == traits_type::eof() || !readEnd());
                break;
            }
            if (!isBlank(static_cast<char>(c))) {
                quads.push_back(static_cast<char>(c));
            }
        }
        decoded_ = orvik::plugin::base64::decode(quads);
        damaged_ = decoded_.empty() && !quads.empty();
        ended_ = ended_ || damaged_;
        setg(decoded_.data(), decoded_.data(), decoded_.data() + decoded_.size());
        return decoded_.empty() ? traits_type::eof() : traits_type::to_int_type(*gptr());
    }

private:
    void skipToBody() {
        started_ = true;
        std::string line;
        for (int c = source_.sbumpc(); c != traits_type::eof(); c = source_.sbumpc()) {
            if (c != '\n') {
                line.push_back(static_cast<char>(c));
                continue;
            }
            if (line.starts_with(armorStart)) {
                label_ = labelOf(line);
                return;
            }
            line.clear();
        }
    }

    /// Reads the last line of the block, behind its first '-'; false when it is something else.
    bool readEnd() {
        const std::string end = "----END " + label_ + "-----";
        std::string line;
        if (!nextLine(line) || !line.starts_with(end)) {
            return false;
        }
        textAfterEnd_ = hasText(std::string_view(line).substr(end.size()));
        return true;
    }

    /// Reads a line, of which the first octets are kept; false at the end.
    bool nextLine(std::string& line) {
        line.clear();
        int c = source_.sbumpc();
        const bool more = c != traits_type::eof();
        for (; c != traits_type::eof() && c != '\n'; c = source_.sbumpc()) {
            if (line.size() < longestLine) {
                line.push_back(static_cast<char>(c));
            } else if (!isBlank(static_cast<char>(c))) {
                line.back() = static_cast<char>(c); // so that text far to the right is seen
            }
        }
        return more;
    }

    std::streambuf& source_;
    bool pem_;
    bool started_;
    bool ended_ = false;
    bool damaged_ = false;
    bool lacksEnd_ = false;
    bool textAfterEnd_ = false;
    std::string label_;
    std::string decoded_;
};

namespace {

/// From where the descriptor stands (standard input may be read in part already) to the end of the file.
std::uint64_t octetsLeft(int fd, const struct stat& status) {
    const auto at = ::lseek(fd, 0, SEEK_CUR);
    return at < 0 || at > status.st_size ? 0 : static_cast<std::uint64_t>(status.st_size - at);
}

} // namespace

Input::Input(const std::string& path) : path_(path), name_(path == "-" ? "standard input" : path) {
    const int fd = path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (fd < 0 || ::fstat(fd, &status) != 0) {
        throw fileFailure("cannot read " + name_, errno);
    }
    const bool regular = S_ISREG(status.st_mode);
    descriptor_ = std::make_unique<Descriptor>(fd, regular ? octetsLeft(fd, status) : 0);
    if (S_ISDIR(status.st_mode)) {
        throw fileFailure("cannot read " + name_, EISDIR);
    }
    if (regular) {
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    }
}

Input::~Input() = default;

std::istream& Input::raw() {
    if (!stream_) {
        stream_ = std::make_unique<std::istream>(descriptor_.get());
    }
    return *stream_;
}

std::istream& Input::decoded(std::string_view label) {
    if (!stream_) {
        std::string_view head = descriptor_->ahead(bufferSize);
        const bool marked = head.starts_with(byteOrderMark);
        head.remove_prefix(marked ? byteOrderMark.size() : 0);
        const std::size_t armor = findArmor(head, label);
        const Coding coding = codingOf(head, armor != std::string_view::npos);
        if (coding == Coding::binary) {
            return raw();
        }
        const std::size_t skipped =
            (marked ? byteOrderMark.size() : 0) + (coding == Coding::pem ? armor : std::size_t{0});
        textBefore_ = coding == Coding::pem && hasText(head.substr(0, armor));
        for (std::size_t i = 0; i < skipped; ++i) {
            descriptor_->sbumpc();
        }
        armor_ = std::make_unique<Armor>(*descriptor_, coding == Coding::pem);
        stream_ = std::make_unique<std::istream>(armor_.get());
    }
    return *stream_;
}

std::string Input::peek(std::size_t most) {
    return std::string(armor_ ? armor_->ahead(most) : descriptor_->ahead(most));
}

Surroundings Input::surroundings() {
    Surroundings around;
    if (armor_) {
        around.textBefore = textBefore_;
        armor_->readRest(around);
    }
    return around;
}

std::string Input::label() const {
    return armor_ ? armor_->label() : std::string{};
}

bool Input::isFile(const std::string& path) const {
    struct stat own {};
    struct stat named {};
    return path != "-" && descriptor_->status(own) && ::stat(path.c_str(), &named) == 0 && own.st_dev == named.st_dev &&
           own.st_ino == named.st_ino;
}

void Input::watch(Watcher watcher) {
    descriptor_->watcher = std::move(watcher);
}

std::uint64_t Input::size() const noexcept {
    return descriptor_->size();
}

void Input::check() const {
    if (descriptor_->error() != 0) {
        throw fileFailure("cannot read " + name_, descriptor_->error());
    }
    if (descriptor_->grew()) {
        throw Failure(ExitCode::input, "cannot read " + name_, "it grew while it was read",
                      "try again when nothing writes to it any more");
    }
    if (armor_ && armor_->damaged()) {
        throw Failure(ExitCode::input, "cannot read " + name_, "it is damaged: not Base64");
    }
    if (armor_ && armor_->lacksEnd()) {
        throw Failure(ExitCode::input, "cannot read " + name_,
                      "its PEM block does not end with the line -----END " + printable(armor_->label()) + "-----",
                      "get the whole file again");
    }
}

std::string readSmall(const std::string& path, std::size_t limit, std::string_view label) {
    Input input(path);
    std::istream& stream = input.decoded(label);
    std::string data(limit + 1, '\0');
    stream.read(data.data(), static_cast<std::streamsize>(data.size()));
    input.check();
    data.resize(static_cast<std::size_t>(stream.gcount()));
    if (data.size() > limit) {
        throw Failure(ExitCode::input, "cannot read " + input.name(), "it is too large for what it should be");
    }
    if (data.empty()) {
        throw Failure(ExitCode::input, "cannot read " + input.name(), "it is empty");
    }
    return data;
}

} // namespace klunortredi::cli
