#include "chain_material.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "failure.hpp"
#include "orvik/plugin/path_registry.hpp"

#include <boost/filesystem/operations.hpp>

#include <limits>
#include <string_view>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;
using orvik::plugin::crypto::exception::SystemException;

constexpr char sequence = '\x30';
constexpr char contextZero = '\xA0'; ///< [0], constructed
constexpr char contextOne = '\xA1';  ///< [1], constructed
constexpr std::string_view versionOne("\x02\x01\x01", 3);
constexpr std::string_view emptySet("\x31\x00", 2);
/// OBJECT IDENTIFIER 1.2.840.113549.1.7.2 and .1 (RFC 5652, 5.1 and 4)
constexpr std::string_view signedData("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02", 11);
constexpr std::string_view data("\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x01", 11);

/// A value with its tag and length in DER (X.690, 8.1.3).
std::string tagged(char tag, std::string_view value) {
    std::string octets{tag};
    if (value.size() < 0x80) {
        octets += static_cast<char>(value.size());
    } else {
        std::string length;
        for (std::size_t rest = value.size(); rest != 0; rest >>= 8U) {
            length.insert(length.begin(), static_cast<char>(rest & 0xFFU));
        }
        octets += static_cast<char>(0x80U | length.size());
        octets += length;
    }
    return octets.append(value);
}

std::string joined(const std::vector<std::string>& parts) {
    std::string all;
    for (const std::string& part : parts) {
        all += part;
    }
    return all;
}

std::string withoutSigners(const std::vector<std::string>& certificates, const std::vector<std::string>& crls) {
    std::string body(versionOne);
    body.append(emptySet); // digest algorithms
    body += tagged(sequence, data);
    body += certificates.empty() ? std::string{} : tagged(contextZero, joined(certificates));
    body += crls.empty() ? std::string{} : tagged(contextOne, joined(crls));
    body.append(emptySet); // signers
    return tagged(sequence, std::string(signedData) + tagged(contextZero, tagged(sequence, body)));
}

} // namespace

ChainMaterial::ChainMaterial(const std::vector<std::string>& certificates, const std::vector<std::string>& crls) {
    if (certificates.empty() && crls.empty()) {
        return;
    }
    const std::string message = withoutSigners(certificates, crls);
    if (message.size() > std::numeric_limits<DWORD>::max()) {
        throw SystemException(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
    *message_.put() = wincrypt::CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, 0, 0, 0, nullptr, nullptr);
    if (!message_ || wincrypt::CryptMsgUpdate(message_.get(), reinterpret_cast<const BYTE*>(message.data()),
                                              static_cast<DWORD>(message.size()), 1) == 0) {
        throw SystemException();
    }
    store_.emplace(message_.get());
    if (!*store_) {
        throw SystemException();
    }
}

void* ChainMaterial::store() const {
    return store_ ? store_->get() : nullptr;
}

bool usesEmbeddedService() {
    using orvik::plugin::PathRegistry;
    boost::system::error_code ignored;
    return !boost::filesystem::exists(PathRegistry::vipNetResourceFile(), ignored) &&
           PathRegistry::cryptoProResourceFile().filename().string().starts_with("libklunortredi_csp.");
}

void requireEmbeddedService(const std::string& option) {
    if (!usesEmbeddedService()) {
        throw Failure(ExitCode::service, "cannot use " + option,
                      "the CryptoAPI service of this machine trusts what its own stores hold and nothing else",
                      "add the certificate to its store root, or use the embedded service");
    }
}

} // namespace klunortredi::cli
