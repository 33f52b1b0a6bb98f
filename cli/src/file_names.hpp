#pragma once

/// The files that a verb works on: named on the command line, or in a list (`--files-from`).

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::cli {

class Input;
class Spool;

/// What the command line says about them.
struct NamedFiles {
    std::vector<std::string> files;
    std::string from;      ///< --files-from: a file, or "-" for standard input; empty: no list
    bool zeroEnds = false; ///< -0: a zero octet ends each name of the list, instead of a line end

    /// Whether there may be several; the form of the output depends on it.
    [[nodiscard]] bool many() const { return !from.empty() || files.size() > 1; }
    /// Throws Failure (exit 2): no file, names and a list, -0 without a list, standard input used twice.
    void check(const std::string& what) const;
};

/// A file's name, or what is wrong with an entry of the list.
struct FileName {
    std::string name;    ///< of a bad entry its place ("name 3 of LIST")
    std::string trouble; ///< why it cannot be a name; empty for one that can
};

/// Yields one name after another. A list is read as it is needed, so that it may be longer than memory, and may be a
/// pipe whose writer is still at work.
class FileNames {
public:
    /// `named` outlives this. Throws Failure (exit 3) for a list that cannot be read.
    explicit FileNames(const NamedFiles& named);
    FileNames(const FileNames&) = delete;
    FileNames& operator=(const FileNames&) = delete;
    ~FileNames();

    /// The next; nullopt at the end. A list's names are never "-" for standard input. Throws Failure (exit 3) when the
    /// list cannot be read on.
    std::optional<FileName> next();

    /// Reads the list to its end into an unnamed temporary file, so that rewind() can be called. Throws Failure (exit
    /// 3).
    void keep();
    /// Back to the first name, after keep().
    void rewind();

private:
    int octet();
    FileName listed(std::string octets, bool tooLong) const;

    const NamedFiles& named_;
    std::unique_ptr<Input> list_;
    std::unique_ptr<Spool> spool_;
    std::string_view piece_; ///< of spool_
    std::uint64_t count_ = 0;
};

} // namespace klunortredi::cli
