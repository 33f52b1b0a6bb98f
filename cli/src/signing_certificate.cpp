#include "signing_certificate.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/tools_encode.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/hex.hpp"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace klunortredi::cli {

namespace {

namespace wincrypt = orvik::plugin::wincrypt;
using orvik::plugin::crypto::ICertificate;
using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::crypto::format::SignatureRequest;

constexpr const char* signingCertificate = "1.2.840.113549.1.9.16.2.12";
constexpr const char* signingCertificateV2 = "1.2.840.113549.1.9.16.2.47";
constexpr const char* sha256 = "2.16.840.1.101.3.4.2.1"; // the default, which DER leaves out

std::string sequence(std::vector<std::string> members) {
    std::vector<CRYPT_DER_BLOB> blobs;
    for (std::string& member : members) {
        blobs.push_back({static_cast<DWORD>(member.size()), reinterpret_cast<BYTE*>(member.data())});
    }
    const CRYPT_SEQUENCE_OF_ANY list{static_cast<DWORD>(blobs.size()), blobs.data()};
    const auto* const type = reinterpret_cast<const char*>(std::uintptr_t{capi::X509_SEQUENCE_OF_ANY}); // NOLINT
    return wincrypt::CryptEncodeObjectEx(capi::X509_AND_PKCS_7, type, &list);
}

/// AlgorithmIdentifier without parameters: the same octets as a list of one key usage.
std::string algorithm(std::string oid) {
    char* text = oid.data();
    return wincrypt::tools::encodeEnhKeyUsage({1, &text});
}

std::string hashOf(const ICertificate& certificate, const std::string& digestOid) {
    const auto provider = certificate.provider(true);
    if (!provider) { // the certificate names its provider and its container together
        throw CryptoException(CryptoException::Code::noContainer);
    }
    const auto hash = provider->hash(nullptr, digestOid);
    const std::string octets = certificate.raw();
    hash->update(reinterpret_cast<const unsigned char*>(octets.data()), octets.size());
    return hash->finalize();
}

} // namespace

SignatureRequest::Attribute signingCertificateAttribute(const ICertificate& certificate) {
    const std::string digest = certificate.hashAlgorithm();
    std::vector<std::string> id{wincrypt::tools::encodeOctetString(hashOf(certificate, digest))};
    if (digest != sha256) {
        id.insert(id.begin(), algorithm(digest));
    }
    const std::string value = sequence({sequence({sequence(id)})});
    return {"DER", signingCertificateV2, orvik::plugin::hex::encode(value)};
}

void nameSigningCertificate(std::vector<SignatureRequest::Attribute>& attributes, const ICertificate& certificate) {
    const bool named = std::any_of(attributes.begin(), attributes.end(), [](const SignatureRequest::Attribute& one) {
        return one.oid == signingCertificate || one.oid == signingCertificateV2;
    });
    if (!named) {
        attributes.push_back(signingCertificateAttribute(certificate));
    }
}

} // namespace klunortredi::cli
