#pragma once

/// The plug-in on the real embedded service, with data of the test's own.

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate.hpp"
#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "print_optional.hpp"
#include "support/openssl.hpp"
#include "support/temp_folder.hpp"

#include <gmock/gmock.h>

#include <boost/smart_ptr/shared_ptr.hpp>

#include <atomic>
#include <memory>
#include <string>

namespace wincrypt_keys {

inline constexpr const char* pin = "12345678";

/// A provider of the embedded service, and how openssl speaks of its keys.
struct KeyKind {
    const char* label;
    unsigned long type;
    const wchar_t* provider;
    const char* keyOid;
    const char* hashOid;
    const char* digest;          ///< openssl dgst
    bool reversed;               ///< the service's signatures are openssl's back to front
    bool inContainerCertificate; ///< whether its certificates are read back from containers
};

void PrintTo(const KeyKind& kind, std::ostream* out);

extern const KeyKind gost256;
extern const KeyKind gost512;
extern const KeyKind rsa;

class EmbeddedFixture : public ::testing::Test {
protected:
    /// The embedded service's data lie in the test's folder. The dialogue answers with `pin`.
    EmbeddedFixture();
    ~EmbeddedFixture() override;

    static orvik::plugin::wincrypt::Provider provider(const KeyKind& kind,
                                                      const boost::optional<std::wstring>& container = boost::none) {
        return {kind.type, kind.provider, container};
    }

    /// A new container with one key, through the forwarders. Gives its public key, DER SubjectPublicKeyInfo.
    static std::string makeContainer(const KeyKind& kind, const std::wstring& name,
                                     DWORD keySpec = capi::AT_KEYEXCHANGE);

    /// A certificate for that public key, DER, by a throw-away authority.
    [[nodiscard]] std::string issue(const std::string& publicKey) const;

    /// A container with a key, and a certificate linked to it.
    [[nodiscard]] boost::shared_ptr<orvik::plugin::wincrypt::Certificate>
    signer(const KeyKind& kind, const std::wstring& name, DWORD keySpec = capi::AT_KEYEXCHANGE) const;

    /// Whether openssl finds `signature`, made by the service over `data`, to be of `certificate`'s key.
    [[nodiscard]] bool opensslAccepts(const KeyKind& kind, const orvik::plugin::wincrypt::Certificate& certificate,
                                      const std::string& data, std::string signature) const;

    test_support::TempFolder folder_;
    test_support::Openssl openssl_{folder_};
    std::atomic<unsigned> dialogues_ = 0;
};

} // namespace wincrypt_keys
