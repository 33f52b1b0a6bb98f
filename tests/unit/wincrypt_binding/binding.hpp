#pragma once

/// What the tests of the CryptoAPI binding share.

#include "service_double/double_fixture.hpp"
#include "service_double/thrown.hpp"

#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"

#include <gmock/gmock.h>

#include <string>
#include <utility>

namespace wincrypt_binding {

namespace wincrypt = orvik::plugin::wincrypt;

using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using orvik::plugin::log::Severity;
using service_double::Defaults;
using service_double::describe;
using service_double::DoubleFixture;
using service_double::fail;
using service_double::give;
using service_double::LogRecord;
using service_double::service;
using service_double::Slots;
using service_double::Thrown;
using service_double::thrownBy;

inline constexpr const wchar_t* vipNetName = L"Infotecs GOST 2012/512 Cryptographic Service Provider";
inline constexpr const wchar_t* cryptoProName = L"Crypto-Pro GOST R 34.10-2012 Cryptographic Service Provider";

inline service_double::Provider scripted(const std::string& name, DWORD type) {
    service_double::Provider provider;
    provider.name = name;
    provider.type = type;
    return provider;
}

inline service_double::Provider cryptoProProvider() {
    return scripted("Crypto-Pro GOST R 34.10-2012 Cryptographic Service Provider", 80);
}

inline service_double::Container containerNamed(const std::wstring& name) {
    service_double::Container container;
    container.name = name;
    return container;
}

/// The error number as exceptions carry it.
inline int code(DWORD number) {
    return static_cast<int>(number);
}

/// A call that any service answers, to see which library it lands in.
inline std::string libraryCalled() {
    service().clearCalls();
    wincrypt::CryptGenRandom(0, 0, nullptr);
    const auto calls = service().calls();
    return calls.empty() ? "none" : calls.front().library;
}

inline constexpr int noProvider = static_cast<int>(CryptoException::Code::noProvider);
/// How every use of the CryptoAPI fails with no service installed.
inline const Thrown noServiceInstalled{noProvider, "wincrypt_handler", "get", 177};

} // namespace wincrypt_binding
