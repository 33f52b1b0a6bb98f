#pragma once

#include "capi/constants.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <string>

namespace orvik::plugin::wincrypt {

/// The structure at the front of octets that a sizing helper read one short: its last octet lies behind the string's
/// end. Null when there are too few. Points into `object`.
template <class T>
const T* structure(const std::string& object) {
    return object.size() + 1 < sizeof(T) ? nullptr : reinterpret_cast<const T*>(object.data());
}

/// The property that links a certificate to its key container; read it through structure<CRYPT_KEY_PROV_INFO>.
inline std::string keyProvProperty(PCCERT_CONTEXT context) {
    return CertGetCertificateContextPropertyEx(context, capi::CERT_KEY_PROV_INFO_PROP_ID);
}

} // namespace orvik::plugin::wincrypt
