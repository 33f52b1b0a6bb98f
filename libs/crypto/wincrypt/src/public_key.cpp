#include "crypto/wincrypt/public_key.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

std::string bytes(const BYTE* data, DWORD size) {
    return data == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(data), size);
}

// The CryptoAPI's structures point at non-const octets even where it only reads them.
BYTE* data(const std::string& bytes) {
    return bytes.empty() ? nullptr : reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()));
}

/// The key as the service wants it; points into `key`.
CERT_PUBLIC_KEY_INFO view(const crypto::IPublicKey& key) {
    const std::string& parameters = key.algParams();
    const std::string& bits = key.key();
    CERT_PUBLIC_KEY_INFO info{};
    info.Algorithm.pszObjId = const_cast<char*>(key.algObjId().c_str());
    info.Algorithm.Parameters = {static_cast<DWORD>(parameters.size()), data(parameters)};
    info.PublicKey = {static_cast<DWORD>(bits.size()), data(bits), 0};
    return info;
}

} // namespace
} // namespace internal

PublicKey::PublicKey(_CERT_PUBLIC_KEY_INFO* info) {
    if (info == nullptr) {
        return;
    }
    key_ = internal::bytes(info->PublicKey.pbData, info->PublicKey.cbData);
    algObjId_ = info->Algorithm.pszObjId == nullptr ? "" : info->Algorithm.pszObjId;
    algParams_ = internal::bytes(info->Algorithm.Parameters.pbData, info->Algorithm.Parameters.cbData);
}

PublicKey::~PublicKey() = default;

bool PublicKey::operator==(const crypto::IPublicKey& other) const {
    CERT_PUBLIC_KEY_INFO mine = internal::view(*this);
    CERT_PUBLIC_KEY_INFO theirs = internal::view(other);
    return CertComparePublicKeyInfo(capi::X509_AND_PKCS_7, &mine, &theirs) != 0;
}

} // namespace orvik::plugin::wincrypt
