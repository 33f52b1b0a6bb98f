#pragma once

/// Throw-away certification authorities, certificates and CRLs, made with OpenSSL at test time.

#include "core/bytes.hpp"
#include "core/ossl.hpp"

#include <ctime>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace pki {

namespace csp = klunortredi::csp;

enum class KeyKind { Ec, Rsa, Gost256, Gost512 };

/// Not for objects that outlive main: the engine of its key goes with OpenSSL at exit.
struct Entity {
    csp::Bytes der;
    csp::ossl::X509Ptr certificate;
    csp::ossl::Pkey key;
};

struct Wanted {
    std::string subject;            ///< common name, UTF-8
    const Entity* issuer = nullptr; ///< null: self-signed
    KeyKind kind = KeyKind::Ec;
    long serial = 1;
    std::time_t notBefore = std::time(nullptr) - 3600;
    std::time_t notAfter = std::time(nullptr) + 86400;
    std::vector<std::pair<int, std::string>> extensions{}; ///< NID, value as in openssl.cnf
    EVP_PKEY* reuseKey = nullptr;                          ///< null: a new key
    const EVP_MD* digest = nullptr;                        ///< null: the usual one of the issuer's key
    std::function<void(X509*)> change{};                   ///< last touch before the certificate is signed
};

csp::ossl::Pkey newKey(KeyKind kind);
Entity make(const Wanted& wanted);
/// A self-signed certification authority.
Entity root(const std::string& subject, KeyKind kind = KeyKind::Ec);
/// A CA under `issuer`.
Entity intermediate(const std::string& subject, const Entity& issuer, long serial = 2);
csp::Bytes crl(const Entity& issuer, const std::vector<long>& revokedSerials);

struct WantedCrl {
    std::vector<long> serials{}; ///< of the revoked certificates
    std::time_t thisUpdate = std::time(nullptr) - 60;
    std::time_t nextUpdate = std::time(nullptr) + 86400; ///< 0: the list has none
    std::time_t revoked = std::time(nullptr) - 60;
    std::vector<std::pair<int, std::string>> extensions{};      ///< NID, value as in openssl.cnf
    std::vector<std::pair<int, std::string>> entryExtensions{}; ///< of every entry
    const Entity* certificateIssuer = nullptr; ///< the entries are of this authority's certificates (indirect CRL)
    const EVP_MD* digest = nullptr;            ///< null: the usual one of the issuer's key
};
csp::Bytes makeCrl(const Entity& issuer, const WantedCrl& wanted);
/// The certificate of another certificate's octets.
csp::ossl::X509Ptr decode(csp::ByteView der);

} // namespace pki
