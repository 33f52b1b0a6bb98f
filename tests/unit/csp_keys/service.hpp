#pragma once

/// The entry points under test, each test with a data directory of its own.

#include "capi/constants.hpp"
#include "core/bytes.hpp"
#include "exports/export.hpp"
#include "support/temp_folder.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace csp_keys {

using namespace klunortredi::csp::exports;
using klunortredi::csp::Bytes;
using klunortredi::csp::ByteView;

inline constexpr DWORD verifyOnly = capi::CRYPT_VERIFYCONTEXT | capi::CRYPT_SILENT;
inline constexpr const char* cyrillic = "Ключ Ивановой №5";
inline constexpr const wchar_t* cyrillicWide = L"Ключ Ивановой №5";

class ServiceTest : public testing::Test {
protected:
    ServiceTest();
    test_support::TempFolder home_;
};

/// A provider context, released at the end.
class Context {
public:
    Context(DWORD type, const wchar_t* container, DWORD flags);
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    ~Context() { release(); }
    [[nodiscard]] unsigned long get() const { return handle_; }
    void release();

private:
    unsigned long handle_ = 0;
};

/// A key or hash handle.
class Key {
public:
    explicit Key(unsigned long handle) : handle_(handle) {}
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key() { CryptDestroyKey(handle_); }
    [[nodiscard]] unsigned long get() const { return handle_; }

private:
    unsigned long handle_;
};

class Hash {
public:
    Hash(unsigned long hProv, ALG_ID algorithm, ByteView data = {});
    Hash(const Hash&) = delete;
    Hash& operator=(const Hash&) = delete;
    ~Hash() { CryptDestroyHash(handle_); }
    [[nodiscard]] unsigned long get() const { return handle_; }
    [[nodiscard]] Bytes value() const;

private:
    unsigned long handle_ = 0;
};

/// Whether the call was refused with exactly that code.
testing::AssertionResult refused(BOOL result, DWORD code);

Bytes bytes(std::string_view text);
Bytes fromHex(std::string_view hex);

/// Parameters by the two-call protocol. Throw when refused.
Bytes provParam(unsigned long hProv, DWORD param, DWORD flags = 0);
std::string provText(unsigned long hProv, DWORD param, DWORD flags = 0);
DWORD provNumber(unsigned long hProv, DWORD param);
Bytes keyParam(unsigned long hKey, DWORD param);
DWORD keyNumber(unsigned long hKey, DWORD param);

BOOL setPin(unsigned long hProv, const char* pin, DWORD flags);
BOOL choose(unsigned long hProv, DWORD param, const char* oid);
Bytes sign(unsigned long hHash, DWORD keySpec);

/// Creates a container with one key pair and lets it go.
void makeContainer(DWORD type, const wchar_t* name, const char* pin, DWORD keySpec = capi::AT_KEYEXCHANGE,
                   DWORD flags = 0);

/// The names that an enumeration gives.
std::vector<std::string> containerNames(DWORD type, DWORD flags);

/// The exported structure; its pointers lead into the owned block.
class PublicKeyInfo {
public:
    PublicKeyInfo(unsigned long hProv, DWORD keySpec);
    [[nodiscard]] CERT_PUBLIC_KEY_INFO* get();

private:
    std::vector<unsigned long> block_; // aligned as the structure is
};

} // namespace csp_keys
