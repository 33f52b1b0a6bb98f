#include "additions.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/certificate_store.hpp"
#include "failure.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"

#include <nlohmann/json.hpp>

namespace klunortredi::cli {

namespace {

using orvik::plugin::crypto::ICertificate;
using orvik::plugin::crypto::ICertificateStore;
using orvik::plugin::wincrypt::RegistryCertificateStore;

/// Anybody can make a certificate with the issuer and serial number of an installed one. Throws Failure (exit 4) when
/// the installed one has a private key and `added` is of another key.
void checkReplacement(const ICertificate& installed, const ICertificate& added, const std::string& store,
                      const std::string& what) {
    if (!installed.container() || *installed.publicKey() == *added.publicKey()) {
        return;
    }
    throw Failure(ExitCode::service, what,
                  "store " + store +
                      " has a certificate of the same issuer and serial number with its private "
                      "key, and this one is of another key",
                  "one of the two is not genuine; to replace the installed one, delete it first: thumbprint " +
                      thumbprintOf(installed),
                  capi::CRYPT_E_EXISTS);
}

} // namespace

std::vector<Addition> addToStore(const std::vector<CertificatePtr>& certificates, const std::string& store,
                                 const std::string& what) {
    RegistryCertificateStore registry(store, ICertificateStore::system);
    std::vector<Addition> additions;
    for (const CertificatePtr& certificate : certificates) {
        additions.push_back({certificate, registry.findCertificate(*certificate)});
        if (additions.back().replaces()) {
            checkReplacement(*additions.back().installed, *certificate, store, what);
        }
    }
    for (const Addition& addition : additions) {
        if (!addition.isThere()) { // adding it again would drop its link to a key
            registry.addCertificate(*addition.certificate);
        }
    }
    return additions;
}

nlohmann::ordered_json toJson(const std::vector<Addition>& additions) {
    auto list = nlohmann::ordered_json::array();
    for (const Addition& addition : additions) {
        auto json = toJson(*addition.certificate);
        json["outcome"] = addition.isThere() ? "already_there" : addition.replaces() ? "replaced" : "added";
        json["replaced"] = addition.replaces() ? toJson(*addition.installed) : nlohmann::ordered_json();
        list.push_back(std::move(json));
    }
    return list;
}

void print(std::ostream& out, const Addition& addition, const std::string& store, bool storeWasEmpty) {
    if (addition.isThere()) {
        out << "store " << store << " has " << titleOf(*addition.certificate) << " already\n";
        return;
    }
    out << "added " << titleOf(*addition.certificate) << " to store " << store
        << (storeWasEmpty ? ", which was empty" : "") << '\n';
    if (addition.replaces()) {
        out << "  in place of the certificate of the same issuer and serial number, thumbprint "
            << thumbprintOf(*addition.installed) << '\n';
    }
}

} // namespace klunortredi::cli
