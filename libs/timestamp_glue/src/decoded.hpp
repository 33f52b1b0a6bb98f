#pragma once

#include "capi/constants.hpp"
#include "capi/types.h"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <boost/utility/string_view.hpp>

#include <cstdint>
#include <string>

namespace orvik::plugin::timestamp_glue {

inline boost::string_view view(const CRYPTOAPI_BLOB& blob) {
    return blob.pbData == nullptr ? boost::string_view()
                                  : boost::string_view(reinterpret_cast<const char*>(blob.pbData), blob.cbData);
}

/// A number where the CryptoAPI takes "a text or a small number".
inline const char* structType(DWORD number) {
    return reinterpret_cast<const char*>(std::uintptr_t{number}); // NOLINT: the CryptoAPI's own way of passing it
}

/// A structure that the service decoded. Its pointers lead into the octets that it owns, so it stays where it is.
template <class T>
class Decoded {
public:
    Decoded(DWORD type, boost::string_view encoded)
        : octets_(wincrypt::CryptDecodeObjectEx(capi::X509_AND_PKCS_7, structType(type),
                                                reinterpret_cast<const BYTE*>(encoded.data()),
                                                static_cast<DWORD>(encoded.size()))) {}
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    /// False when the octets are not of the type, or decode to more than the sizing helpers take.
    explicit operator bool() const { return !octets_.empty() && octets_.size() + 1 >= sizeof(T); }
    const T* operator->() const { return reinterpret_cast<const T*>(octets_.data()); }

private:
    std::string octets_; ///< one octet short: the last lies after its end
};

} // namespace orvik::plugin::timestamp_glue
