#pragma once

/// What every test of the suite stands on: deviations, refusals, and owners for what the service hands out.

#include "service.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace conformance {

using Bytes = std::vector<std::uint8_t>;

/// A test that is listed as a known deviation has its failures taken down instead of counted, and fails when it has
/// none ("unexpected success").
class ConformanceTest : public testing::Test {
public:
    /// Text of a last error, with the service's number.
    static std::string lastErrorText();

protected:
    ConformanceTest();
    void TearDown() override;

private:
    std::optional<std::string> deviation_;
    testing::TestPartResultArray takenDown_;
    std::unique_ptr<testing::ScopedFakeTestPartResultReporter> interceptor_;
};

/// Whether `call` fails and leaves one of `codes` as the last error; a stale error cannot pass for the call's own.
testing::AssertionResult refuses(const std::function<bool()>& call, std::initializer_list<DWORD> codes);
/// Whether `call` succeeds; tells the last error otherwise.
testing::AssertionResult accepts(const std::function<bool()>& call);
/// For steps that a test cannot go on without: throws with the last error when `ok` is false.
void must(bool ok, const char* step);

#define EXPECT_REFUSED(call, ...)                                                                                      \
    EXPECT_TRUE(::conformance::refuses([&] { return static_cast<bool>(call); }, {__VA_ARGS__})) << #call
#define EXPECT_ACCEPTED(call) EXPECT_TRUE(::conformance::accepts([&] { return static_cast<bool>(call); })) << #call

/// The two spellings that the documentation has for an argument that makes no sense, as a system error and as HRESULT.
#define BAD_ARGUMENT                                                                                                   \
    ::capi::ERROR_INVALID_PARAMETER, ::DWORD {                                                                         \
        0x80070057                                                                                                     \
    }

/// A two-call entry point: fills the buffer, or tells the size when it is null.
using Fetch = std::function<bool(void* buffer, DWORD* size)>;
/// The value of a fixed structure or text by the two-call protocol; throws when a call fails.
Bytes fetch(const Fetch& call);
/// Walks the size protocol: no size pointer, the size alone, no room, one octet short (ERROR_MORE_DATA and the size
/// needed, nothing written), room enough (nothing written behind it). Gives the value.
Bytes walkSizes(const Fetch& call);

/// Owner of one handle or context.
template <class Value, class Release>
class Owned {
public:
    Owned() = default;
    explicit Owned(Value value) : value_(value) {}
    Owned(Owned&& other) noexcept : value_(std::exchange(other.value_, Value{})) {}
    Owned& operator=(Owned&& other) noexcept {
        std::swap(value_, other.value_);
        return *this;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() {
        if (value_ != Value{}) {
            Release()(value_);
        }
    }
    [[nodiscard]] Value get() const { return value_; }
    /// For entry points that give a handle through a pointer.
    [[nodiscard]] Value* address() { return &value_; }
    [[nodiscard]] Value release() { return std::exchange(value_, Value{}); }

private:
    Value value_{};
};

struct ReleaseContext {
    void operator()(unsigned long handle) const { api().CryptReleaseContext(handle, 0); }
};
struct DestroyKey {
    void operator()(unsigned long handle) const { api().CryptDestroyKey(handle); }
};
struct DestroyHash {
    void operator()(unsigned long handle) const { api().CryptDestroyHash(handle); }
};
struct CloseMessage {
    void operator()(void* handle) const { api().CryptMsgClose(handle); }
};
struct CloseStore {
    void operator()(void* handle) const { api().CertCloseStore(handle, 0); }
};
struct FreeCertificate {
    void operator()(PCCERT_CONTEXT context) const { api().CertFreeCertificateContext(context); }
};
struct FreeChain {
    void operator()(PCCERT_CHAIN_CONTEXT chain) const { api().CertFreeCertificateChain(chain); }
};
using Context = Owned<unsigned long, ReleaseContext>;
using Key = Owned<unsigned long, DestroyKey>;
using Hash = Owned<unsigned long, DestroyHash>;
using Message = Owned<void*, CloseMessage>;
using Store = Owned<void*, CloseStore>;
using Certificate = Owned<PCCERT_CONTEXT, FreeCertificate>;
using Chain = Owned<PCCERT_CHAIN_CONTEXT, FreeChain>;

/// A number where the CryptoAPI takes the address of a name.
inline const char* numbered(DWORD number) {
    return reinterpret_cast<const char*>(static_cast<std::uintptr_t>(number)); // NOLINT(performance-no-int-to-ptr)
}
inline DWORD sizeOf(const Bytes& bytes) {
    return static_cast<DWORD>(bytes.size());
}
inline Bytes octets(std::string_view text) {
    return {text.begin(), text.end()};
}
/// What a blob of the CryptoAPI holds; for CRYPT_BIT_BLOB too.
template <class Blob>
Bytes bytesOf(const Blob& blob) {
    return {blob.pbData, blob.pbData + blob.cbData};
}
Bytes fromHex(std::string_view digits);
std::string toHex(const Bytes& bytes);
/// The structure at the start of what an entry point delivered; pointers inside lead into `bytes`.
template <class Struct>
const Struct& as(const Bytes& bytes) {
    must(bytes.size() >= sizeof(Struct), "structure of full size");
    return *reinterpret_cast<const Struct*>(bytes.data());
}

} // namespace conformance
