#include "service.hpp"

#include "core/error.hpp"

#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace csp_keys {

namespace {

void must(BOOL result, const char* call) {
    if (result == 0) {
        throw std::runtime_error(std::string(call) + ": " + std::to_string(GetLastError()));
    }
}

DWORD numberOf(const Bytes& value) {
    DWORD number = 0;
    if (value.size() != sizeof number) {
        throw std::runtime_error("not a DWORD");
    }
    std::memcpy(&number, value.data(), sizeof number);
    return number;
}

} // namespace

ServiceTest::ServiceTest() {
    ::setenv("KLUNORTREDI_HOME", home_.path().c_str(), 1);
}

Context::Context(DWORD type, const wchar_t* container, DWORD flags) {
    must(CryptAcquireContextW(&handle_, container, nullptr, type, flags), "CryptAcquireContextW");
}

void Context::release() {
    if (handle_ != 0) {
        CryptReleaseContext(handle_, 0);
        handle_ = 0;
    }
}

Hash::Hash(unsigned long hProv, ALG_ID algorithm, ByteView data) {
    must(CryptCreateHash(hProv, algorithm, 0, 0, &handle_), "CryptCreateHash");
    must(CryptHashData(handle_, data.data(), static_cast<DWORD>(data.size()), 0), "CryptHashData");
}

Bytes Hash::value() const {
    DWORD size = 0;
    must(CryptGetHashParam(handle_, capi::HP_HASHVAL, nullptr, &size, 0), "HP_HASHVAL size");
    Bytes value(size);
    must(CryptGetHashParam(handle_, capi::HP_HASHVAL, value.data(), &size, 0), "HP_HASHVAL");
    return value;
}

testing::AssertionResult refused(BOOL result, DWORD code) {
    if (result != 0) {
        return testing::AssertionFailure() << "succeeded";
    }
    if (GetLastError() != code) {
        return testing::AssertionFailure() << std::hex << "0x" << GetLastError() << " instead of 0x" << code;
    }
    return testing::AssertionSuccess();
}

Bytes bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

Bytes fromHex(std::string_view hex) {
    Bytes octets;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        octets.push_back(static_cast<std::uint8_t>(std::stoul(std::string(hex.substr(i, 2)), nullptr, 16)));
    }
    return octets;
}

Bytes provParam(unsigned long hProv, DWORD param, DWORD flags) {
    DWORD size = 0;
    must(CryptGetProvParam(hProv, param, nullptr, &size, flags), "CryptGetProvParam size");
    Bytes value(size);
    must(CryptGetProvParam(hProv, param, value.data(), &size, flags), "CryptGetProvParam");
    value.resize(size);
    return value;
}

std::string provText(unsigned long hProv, DWORD param, DWORD flags) {
    const Bytes value = provParam(hProv, param, flags);
    if (value.empty() || value.back() != 0) {
        throw std::runtime_error("no terminating zero");
    }
    return {value.begin(), value.end() - 1};
}

DWORD provNumber(unsigned long hProv, DWORD param) {
    return numberOf(provParam(hProv, param));
}

Bytes keyParam(unsigned long hKey, DWORD param) {
    DWORD size = 0;
    must(CryptGetKeyParam(hKey, param, nullptr, &size, 0), "CryptGetKeyParam size");
    Bytes value(size);
    must(CryptGetKeyParam(hKey, param, value.data(), &size, 0), "CryptGetKeyParam");
    return value;
}

DWORD keyNumber(unsigned long hKey, DWORD param) {
    return numberOf(keyParam(hKey, param));
}

BOOL setPin(unsigned long hProv, const char* pin, DWORD flags) {
    return CryptSetProvParam(hProv, capi::PP_KEYEXCHANGE_PIN, reinterpret_cast<const BYTE*>(pin), flags);
}

BOOL choose(unsigned long hProv, DWORD param, const char* oid) {
    return CryptSetProvParam(hProv, param, reinterpret_cast<const BYTE*>(oid), 0);
}

Bytes sign(unsigned long hHash, DWORD keySpec) {
    DWORD size = 0;
    must(CryptSignHashW(hHash, keySpec, nullptr, 0, nullptr, &size), "CryptSignHashW size");
    Bytes signature(size);
    must(CryptSignHashW(hHash, keySpec, nullptr, 0, signature.data(), &size), "CryptSignHashW");
    return signature;
}

void makeContainer(DWORD type, const wchar_t* name, const char* pin, DWORD keySpec, DWORD flags) {
    const Context context(type, name, capi::CRYPT_NEWKEYSET);
    if (*pin != '\0') {
        must(setPin(context.get(), pin, capi::PIN_SET_NEW), "PIN_SET_NEW");
    }
    unsigned long key = 0;
    must(CryptGenKey(context.get(), keySpec, flags, &key), "CryptGenKey");
    CryptDestroyKey(key);
}

std::vector<std::string> containerNames(DWORD type, DWORD flags) {
    const Context context(type, nullptr, verifyOnly);
    std::vector<std::string> names;
    DWORD largest = 0;
    if (CryptGetProvParam(context.get(), capi::PP_ENUMCONTAINERS, nullptr, &largest, capi::CRYPT_FIRST | flags) == 0) {
        return names;
    }
    Bytes buffer(largest);
    DWORD size = largest;
    DWORD which = capi::CRYPT_FIRST;
    while (CryptGetProvParam(context.get(), capi::PP_ENUMCONTAINERS, buffer.data(), &size, which | flags) != 0) {
        names.emplace_back(reinterpret_cast<const char*>(buffer.data()));
        which = capi::CRYPT_NEXT;
        size = largest;
    }
    EXPECT_EQ(GetLastError(), capi::ERROR_NO_MORE_ITEMS);
    return names;
}

PublicKeyInfo::PublicKeyInfo(unsigned long hProv, DWORD keySpec) {
    DWORD size = 0;
    must(CryptExportPublicKeyInfo(hProv, keySpec, capi::X509_AND_PKCS_7, nullptr, &size), "export size");
    block_.resize(size / sizeof(unsigned long) + 1);
    must(CryptExportPublicKeyInfo(hProv, keySpec, capi::X509_AND_PKCS_7, get(), &size), "export");
}

CERT_PUBLIC_KEY_INFO* PublicKeyInfo::get() {
    return reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(block_.data());
}

} // namespace csp_keys
