#pragma once

/// Driving the message entry points as a host does, and what the tests need around it.

#include "capi/constants.hpp"
#include "capi/types.h"
#include "core/bytes.hpp"

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace klunortredi::test {

using csp::Bytes;
using csp::ByteView;

/// All of the octets at once.
inline constexpr std::size_t whole = 0;

Bytes bytes(std::string_view text);
Bytes readFile(const std::filesystem::path& file);
void writeFile(const std::filesystem::path& file, ByteView content);
/// DER of what may be PEM.
Bytes fromPem(Bytes derOrPem);

/// A folder that lives as long as the object.
class TempFolder {
public:
    TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder();
    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

private:
    std::filesystem::path path_;
};

/// What a stream callback was given.
struct Collected {
    Bytes octets;
    std::size_t calls = 0;
    std::size_t finalCalls = 0;
    std::size_t failAfter = SIZE_MAX; ///< octets after which it answers FALSE

    [[nodiscard]] CMSG_STREAM_INFO info(DWORD size = capi::CMSG_INDEFINITE_LENGTH);
};

/// An open message; closed with the object. Errors are last-error codes, 0 for success.
class Msg {
public:
    explicit Msg(void* handle) noexcept : handle_(handle) {}
    Msg(const Msg&) = delete;
    Msg& operator=(const Msg&) = delete;
    Msg(Msg&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Msg& operator=(Msg&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Msg();

    static Msg decode(DWORD flags = 0, CMSG_STREAM_INFO* stream = nullptr, DWORD type = 0);

    [[nodiscard]] void* handle() const noexcept { return handle_; }
    /// Feeds `octets` in pieces of `chunk`, the last one final.
    DWORD feed(ByteView octets, std::size_t chunk = whole, bool final = true) const;
    /// A parameter by the two-call protocol; throws its error code as DWORD.
    [[nodiscard]] Bytes param(DWORD type, DWORD index = 0) const;
    [[nodiscard]] DWORD paramError(DWORD type, DWORD index = 0) const;
    [[nodiscard]] DWORD number(DWORD type) const;
    [[nodiscard]] DWORD verify(ByteView certificate) const;
    [[nodiscard]] DWORD verify(const CERT_INFO& certificate) const;
    /// Checks the signer of that index alone.
    [[nodiscard]] DWORD verifySigner(DWORD index, ByteView certificate) const;
    DWORD addUnsignedAttribute(DWORD signer, Bytes attribute) const;
    /// The certificate among those of the message (and `more`) that signer 0 names; empty when there is none.
    [[nodiscard]] Bytes signerCertificate(const std::vector<Bytes>& more = {}) const;

private:
    void* handle_;
};

/// What reading and checking a message came to.
struct Verdict {
    DWORD error = 0; ///< of the first call that failed
    Bytes content;   ///< that the stream callback got
    std::vector<Bytes> certificates;
    friend bool operator==(const Verdict&, const Verdict&) = default;
};

struct VerifyOptions {
    std::size_t chunk = whole;
    const Bytes* detachedContent = nullptr;
    std::vector<Bytes> certificates; ///< given beside the message
};

/// Reads `message` as a stream, finds signer 0's certificate and checks its signature.
Verdict verifyStreamed(ByteView message, const VerifyOptions& options = {});

/// The folder of published cases; empty when it is not at hand.
std::filesystem::path corpora();

} // namespace klunortredi::test
