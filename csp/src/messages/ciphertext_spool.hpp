#pragma once

/// Ciphertext that waits for its key.

#include "core/bytes.hpp"
#include "core/files.hpp"

#include <cstdint>
#include <functional>

namespace klunortredi::csp {

/// Keeps octets in memory up to a limit and all of them in an unnamed file beyond it. The file is readable for nobody
/// else, has no name, and is gone when the spool or the process ends. It holds ciphertext only.
class CiphertextSpool {
public:
    /// Octets kept in memory: messages of everyday size touch no disk, and a large one costs a fixed amount.
    static constexpr std::size_t memoryLimit = 16U << 20U;

    CiphertextSpool() = default;

    /// Throws ApiError with the code of files::errorCode when the file cannot be made or written.
    void append(ByteView piece);
    /// Hands out everything, in order, in pieces. May be called several times.
    void replay(const std::function<void(ByteView)>& sink) const;
    /// Forgets everything and releases memory and file.
    void clear() noexcept;

    [[nodiscard]] std::uint64_t size() const noexcept { return fileSize_ + memory_.size(); }

private:
    void moveToFile();
    void write(ByteView piece);

    Bytes memory_;
    files::Descriptor file_;
    std::uint64_t fileSize_ = 0;
};

} // namespace klunortredi::csp
