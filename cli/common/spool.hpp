#pragma once

#include <string>
#include <string_view>

namespace klunortredi::cli {

/// A temporary file without a name, in the folder TMPDIR names (else /tmp): holds octets until it is known that they
/// may be passed on. Nothing is left of it, whatever ends the process.
class Spool {
public:
    /// `what` is what it holds, for the messages. Throws Failure (exit 3) when the file cannot be made.
    explicit Spool(std::string what = "the content");
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;
    ~Spool();

    /// Throws Failure (exit 3), also for a full disk.
    void write(std::string_view octets);
    /// A path under which this process reads what was written, from the first octet on, as long as the spool lives.
    [[nodiscard]] std::string path() const;
    /// Hands everything over to `target`, an object with write(std::string_view), from the first octet on.
    template <class Target>
    void copyTo(Target& target) {
        rewind();
        for (std::string_view piece = next(); !piece.empty(); piece = next()) {
            target.write(piece);
        }
    }

    /// Back to the first octet, for next().
    void rewind() const;
    /// The next octets, which stay until the next call; empty at the end.
    [[nodiscard]] std::string_view next();

private:
    [[noreturn]] void fail(int error) const;

    std::string what_;
    std::string folder_;
    std::string buffer_;
    int fd_ = -1;
};

} // namespace klunortredi::cli
