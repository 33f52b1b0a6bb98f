#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include "orvik/plugin/tools.hpp"

#include <algorithm>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

enum class Size { any, nonZero, bounded };
enum class Length { whole, oneShort };
enum class Failure { empty, thrown };

/// What the helpers differ in.
struct Helper {
    const char* name;
    Size size;
    Length length;
    Failure failure;
};

constexpr Helper getProvParam{"CryptGetProvParamEx", Size::nonZero, Length::oneShort, Failure::empty};
constexpr Helper getKeyParam{"CryptGetKeyParamEx", Size::nonZero, Length::whole, Failure::empty};
constexpr Helper getProperty{"CertGetCertificateContextPropertyEx", Size::bounded, Length::oneShort, Failure::empty};
constexpr Helper decodeObject{"CryptDecodeObjectEx", Size::bounded, Length::oneShort, Failure::empty};
constexpr Helper msgGetParam{"CryptMsgGetParamEx", Size::any, Length::whole, Failure::thrown};
constexpr Helper encodeObject{"CryptEncodeObjectEx", Size::nonZero, Length::whole, Failure::thrown};
constexpr Helper exportKey{"CryptExportPublicKeyInfoEx", Size::bounded, Length::whole, Failure::thrown};

/// Bounds of a property, a decoded structure or an exported key that is worth allocating for.
constexpr std::size_t smallest = 2;
constexpr std::size_t largest = 102400;

/// Results at least this long lie on the heap whatever the standard library's small-string limit, so that pointers
/// into them survive a move.
constexpr std::size_t heapFloor = 64;

bool accepted(Size rule, DWORD size) {
    switch (rule) {
    case Size::any:
        return true;
    case Size::nonZero:
        return size != 0;
    case Size::bounded:
        return plugin::tools::check_bounds(size, smallest, largest);
    }
    return false;
}

std::string failed(const Helper& helper) {
    if (helper.failure == Failure::thrown) {
        exception::raise(crypto::exception::SystemException(), {"wincrypt_handler", helper.name});
    }
    return {};
}

/// The two-call protocol. `call(buffer, &size)` is the CryptoAPI function with everything else bound.
///
/// A result that is one short still takes the value's last octet, at data()[size()], and keeps it: decoded structures
/// point there (the bits of a key usage are often that very octet). So that such a result never reads as an unending
/// text, its allocation goes one zero octet further.
template <class Call>
std::string fetch(const Helper& helper, Call call) {
    DWORD size = 0;
    if (!call(nullptr, &size)) {
        return failed(helper);
    }
    if (!accepted(helper.size, size)) {
        return {};
    }
    std::string result;
    result.reserve(std::max<std::size_t>(size + std::size_t{1}, heapFloor));
    result.resize(size + std::size_t{1});
    result.resize(helper.length == Length::oneShort ? size - std::size_t{1} : size);
    if (!call(reinterpret_cast<BYTE*>(result.data()), &size)) {
        return failed(helper);
    }
    return result;
}

} // namespace
} // namespace internal

std::string CryptGetProvParamEx(unsigned long hProv, DWORD dwParam) {
    return internal::fetch(internal::getProvParam, [&](BYTE* buffer, DWORD* size) {
        return CryptGetProvParam(hProv, dwParam, buffer, size, 0);
    });
}

std::string CryptGetKeyParamEx(unsigned long hKey, DWORD dwParam) {
    return internal::fetch(internal::getKeyParam,
                           [&](BYTE* buffer, DWORD* size) { return CryptGetKeyParam(hKey, dwParam, buffer, size, 0); });
}

std::string CertGetCertificateContextPropertyEx(PCCERT_CONTEXT pCertContext, DWORD dwPropId) {
    return internal::fetch(internal::getProperty, [&](BYTE* buffer, DWORD* size) {
        return CertGetCertificateContextProperty(pCertContext, dwPropId, buffer, size);
    });
}

std::string CryptDecodeObjectEx(DWORD dwEncodingType, const char* lpszStructType, const BYTE* pbEncoded,
                                DWORD cbEncoded) {
    return internal::fetch(internal::decodeObject, [&](BYTE* buffer, DWORD* size) {
        return CryptDecodeObject(dwEncodingType, lpszStructType, pbEncoded, cbEncoded, 0, buffer, size);
    });
}

std::string CryptMsgGetParamEx(void* hMsg, DWORD dwParamType, DWORD dwIndex) {
    return internal::fetch(internal::msgGetParam, [&](BYTE* buffer, DWORD* size) {
        return CryptMsgGetParam(hMsg, dwParamType, dwIndex, buffer, size);
    });
}

std::string CryptEncodeObjectEx(DWORD dwEncodingType, const char* lpszStructType, const void* pvStructInfo) {
    return internal::fetch(internal::encodeObject, [&](BYTE* buffer, DWORD* size) {
        return CryptEncodeObject(dwEncodingType, lpszStructType, pvStructInfo, buffer, size);
    });
}

std::string CryptExportPublicKeyInfoEx(unsigned long hProv, DWORD dwKeySpec, DWORD dwCertEncodingType) {
    return internal::fetch(internal::exportKey, [&](BYTE* buffer, DWORD* size) {
        return CryptExportPublicKeyInfo(hProv, dwKeySpec, dwCertEncodingType,
                                        reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(buffer), size);
    });
}

} // namespace orvik::plugin::wincrypt
