#pragma once

#include "service_double/double_fixture.hpp"
#include "service_double/thrown.hpp"

#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/exception/exception.hpp"
#include "print_optional.hpp"
#include "test_certificates.hpp"

#include "orvik/plugin/converter.hpp"

#include <gmock/gmock.h>

#include <boost/exception/get_error_info.hpp>
#include <boost/smart_ptr/make_shared.hpp>

#include <string>

namespace wincrypt_keys {

using orvik::plugin::crypto::IProvider;
using orvik::plugin::log::Severity;
using orvik::plugin::wincrypt::Certificate;
using orvik::plugin::wincrypt::Provider;
using service_double::Defaults;
using service_double::service;

/// Providers of each kind that the framework knows, and one that it does not.
inline constexpr const wchar_t* embeddedName = L"Klunortredi GOST R 34.10-2012 (256) Cryptographic Service Provider";
inline constexpr const wchar_t* rsaName = L"Klunortredi RSA and AES Cryptographic Service Provider";
inline constexpr const wchar_t* cryptoProName = L"Crypto-Pro GOST R 34.10-2012 Cryptographic Service Provider";
inline constexpr const wchar_t* signalComName = L"Signal-COM GOST R 34.10-2012 (256) Cryptographic Provider";
inline constexpr const wchar_t* vipNetName = L"Infotecs GOST 2012/512 Cryptographic Service Provider";
inline constexpr const wchar_t* unknownName = L"Somebody's Provider";

inline std::string der(const char* base64) {
    return orvik::plugin::base64::decode(base64);
}

inline std::string narrow(const std::wstring& ascii) {
    return {ascii.begin(), ascii.end()};
}

inline service_double::Provider scripted(const wchar_t* name, DWORD type = 80) {
    service_double::Provider provider;
    provider.name = narrow(name);
    provider.type = type;
    return provider;
}

inline service_double::Container containerNamed(const std::wstring& name) {
    service_double::Container container;
    container.name = name;
    return container;
}

/// One GOST provider of the embedded family in the service.
class KeysFixture : public service_double::DoubleFixture {
protected:
    KeysFixture() { install(scripted(embeddedName)); }

    /// The installed provider names the algorithm of the certificates' keys, so that they find it.
    static void offerKeyAlgorithm() {
        PROV_ENUMALGS algorithm{};
        algorithm.aiAlgid = 0x2E49;
        installed().algorithms = {algorithm};
    }

    static void install(service_double::Provider provider) { service().providers[""] = {std::move(provider)}; }
    static service_double::Provider& installed() { return service().providers[""].front(); }

    static Provider provider(const boost::optional<std::wstring>& container = boost::none) {
        return {IProvider::gost2012_256, embeddedName, container};
    }

    /// A certificate of the GOST key, linked to `container` of the installed provider.
    static boost::shared_ptr<Certificate> certificateIn(const std::wstring& container) {
        auto certificate = boost::make_shared<Certificate>(der(gostCertificate));
        EXPECT_TRUE(certificate->link(provider(), container));
        service().clearCalls();
        return certificate;
    }

    [[nodiscard]] std::vector<std::string> logTexts(Severity severity) const {
        std::vector<std::string> texts;
        for (const auto& record : log()) {
            if (record.severity == severity) {
                texts.push_back(record.text);
            }
        }
        return texts;
    }
};

using service_double::describe;
using service_double::Thrown;
using service_double::thrownBy;

} // namespace wincrypt_keys
