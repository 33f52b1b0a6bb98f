#pragma once

#include "unit/wincrypt_certificates/certificates.hpp"
#include "unit/wincrypt_keys/keys_fixture.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <string>

namespace wincrypt_certificates {

using orvik::plugin::crypto::IProvider;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::exception::SystemException;
using orvik::plugin::exception::ApplicationException;
using orvik::plugin::log::Severity;
using orvik::plugin::wincrypt::Certificate;
using service_double::Defaults;
using service_double::service;
using wincrypt_keys::der;
using wincrypt_keys::Thrown;
using wincrypt_keys::thrownBy;

/// The service's refusals as a framework code.
inline int code(DWORD error) {
    return static_cast<int>(error);
}

/// One GOST provider that offers the algorithm of the certificates' keys, with one container "box" whose PIN is "1234".
class CertificatesFixture : public wincrypt_keys::KeysFixture {
protected:
    CertificatesFixture() { arrangeService(); }

    /// Scripts the service from nothing.
    static void arrangeService() {
        auto provider = wincrypt_keys::scripted(wincrypt_keys::embeddedName);
        provider.algorithms = {{capi::CALG_GR3410_12_256, 256, 5, "GOST"}};
        provider.containers = {wincrypt_keys::containerNamed(L"box")};
        provider.containers.front().pin = "1234";
        provider.containers.front().publicKey = keyOf(signerCertificate);
        install(provider);
        service().clearCalls();
    }

    static service_double::PublicKey keyOf(const char* base64) {
        const auto key = Certificate(der(base64)).publicKey();
        return {key->algObjId(), key->algParams(), key->key()};
    }

    static boost::shared_ptr<Certificate> certificate(const char* base64 = signerCertificate) {
        auto made = boost::make_shared<Certificate>(der(base64));
        service().clearCalls();
        return made;
    }

    /// Linked to the container of the installed provider.
    static boost::shared_ptr<Certificate> linked(const char* base64 = signerCertificate) {
        auto made = certificate(base64);
        EXPECT_TRUE(made->link(provider(), L"box"));
        service().clearCalls();
        return made;
    }

    /// The functions called, in order.
    [[nodiscard]] static std::vector<std::string> functions() {
        std::vector<std::string> names;
        for (const auto& call : service().calls()) {
            names.push_back(call.function);
        }
        return names;
    }
};

} // namespace wincrypt_certificates
