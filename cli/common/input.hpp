#pragma once

/// Reading of files as they come: from a path or standard input; DER, PEM or bare Base64.

#include <cstdint>
#include <functional>
#include <istream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::cli {

/// The byte order mark of UTF-8, with which some editors begin a text file.
inline constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// What stands around the PEM block that was read.
struct Surroundings {
    bool textBefore = false;
    bool textAfter = false;
    std::vector<std::string> blocks; ///< labels of the blocks after it, the first few
    bool moreBlocks = false;         ///< there are more than those
};

/// An open input. Reads through a buffer of its own, so that pipes, devices and files larger than memory are all alike.
class Input {
public:
    using Watcher = std::function<void(std::uint64_t octets)>;

    /// "-" is standard input. Throws Failure (exit 3) for what is missing, a directory, or not readable.
    explicit Input(const std::string& path);
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input();

    /// The octets as they stand.
    std::istream& raw();
    /// The same octets, with PEM armour or Base64 taken off where the input has it. Use either this or raw(). Armour is
    /// looked for in the first 256 KiB; of several blocks the first is taken whose label ends in `label`, else the
    /// first.
    std::istream& decoded(std::string_view label = {});
    /// The first octets of `decoded()` (or of `raw()`, when that was asked for first), without consuming them.
    std::string peek(std::size_t most);

    /// What stands around the PEM block, for an input that `decoded()` found to be PEM; else empty. Reads to the end of
    /// the input: call it after the block was read.
    [[nodiscard]] Surroundings surroundings();
    /// The label of the PEM block that is read; empty for anything but PEM.
    [[nodiscard]] std::string label() const;
    /// Whether `decoded()` takes PEM armour or Base64 off.
    [[nodiscard]] bool armoured() const noexcept { return armor_ != nullptr; }
    /// Whether that path names the file that is read, by whatever name.
    [[nodiscard]] bool isFile(const std::string& path) const;

    /// Called as data is read.
    void watch(Watcher watcher);
    /// Octets of a regular file that were there to read when it was opened; 0 for anything else.
    [[nodiscard]] std::uint64_t size() const noexcept;
    /// For messages: the path, or "standard input".
    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    /// Throws Failure (exit 3) when reading has failed, met what is not Base64, met the end of a PEM block that is not
    /// the line of its label (RFC 7468, 2), or came to octets that a regular file did not have when it was opened:
    /// reading one that grows need not end. All look like an ordinary end to the stream's user.
    void check() const;

private:
    class Descriptor;
    class Armor;

    std::string path_;
    std::string name_;
    std::unique_ptr<Descriptor> descriptor_;
    std::unique_ptr<Armor> armor_;
    std::unique_ptr<std::istream> stream_;
    bool textBefore_ = false;
};

/// The label of a certificate's PEM block ends so, whatever stands before it ("X509", "TRUSTED").
inline constexpr std::string_view certificateLabel = "CERTIFICATE";

/// The whole input, armour off as `Input::decoded` takes it, refused above `limit` octets (exit 3): for certificates
/// and other small things.
std::string readSmall(const std::string& path, std::size_t limit, std::string_view label = {});

} // namespace klunortredi::cli
