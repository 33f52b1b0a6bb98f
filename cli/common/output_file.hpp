#pragma once

/// Files that appear whole or not at all.

#include <cstdint>
#include <string>
#include <string_view>

namespace klunortredi::cli {

/// Who may read a new file.
enum class Readers {
    usual,     ///< as the umask has it
    ownerOnly, ///< plaintext of what was encrypted
};

/// A new file in the making: it has no name (or a temporary one) until commit(). "-" is standard output, as is a name
/// of the pipe, device or terminal where that goes; another device or pipe is written to directly.
class OutputFile {
public:
    /// Throws Failure (exit 3) when the file is there already and `force` is false, when it is a symbolic link to a
    /// file or to nothing, or when it cannot be made.
    OutputFile(std::string path, bool force, Readers readers = Readers::usual);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    /// Without commit() nothing is left behind.
    ~OutputFile();

    /// Starts to write large files back to the disk while they are made.
    void write(std::string_view octets);
    /// Gives the file that temporary name until commit(). A process killed between leaves it behind, empty or not
    /// (Leftover), and never together with a file of the real name that it made. Nothing for "-", a device or a pipe.
    void nameMeanwhile(const std::string& name);
    /// Gives the file its name, after everything has reached the disk; then the name reaches it too. When that last
    /// step fails, a new file is removed again; one that replaced another stays.
    void commit();
    /// The steps of commit() apart, for many files at once: what was written reaches the disk, with everything else on
    /// its file system; the file gets its name; syncFileSystem() once more makes the names last.
    void syncFileSystem() const;
    void publish();
    /// Number of the file system on which the file lies; 0 for "-", a device or a pipe.
    [[nodiscard]] std::uint64_t fileSystem() const;

    /// The path; "-" when it is standard output.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    /// Octets written so far.
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

private:
    /// Finds out what lies under the name, and refuses what must not be written.
    void inspectTarget();
    void open();
    void openStream();
    void rename() const;
    void syncFolder() const;
    [[noreturn]] void fail(int error) const;

    std::string path_;
    std::string temporary_;         ///< empty while the file has no name at all
    std::uint64_t writtenBack_ = 0; ///< of them the disk was set to work on
    int fd_ = -1;
    std::uint64_t size_ = 0;
    Readers readers_;
    bool force_;
    bool direct_ = false;
};

} // namespace klunortredi::cli
