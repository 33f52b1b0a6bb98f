#include "exports/export.hpp"
#include "objects/oid_info.hpp"

#include <array>
#include <cstring>

namespace klunortredi::csp::exports {

namespace {

/// ALG_IDs behind a caller's key pointer.
template <std::size_t Count>
std::array<ALG_ID, Count> algorithmIds(const void* key) {
    std::array<ALG_ID, Count> ids{};
    std::memcpy(ids.data(), key, sizeof ids);
    return ids;
}

const CRYPT_OID_INFO* find(DWORD keyType, const void* key, DWORD group) {
    switch (keyType) {
    case capi::CRYPT_OID_INFO_OID_KEY:
        return findOidInfo(std::string_view(static_cast<const char*>(key)), group);
    case capi::CRYPT_OID_INFO_NAME_KEY:
        return findOidInfo(std::wstring_view(static_cast<const wchar_t*>(key)), group);
    case capi::CRYPT_OID_INFO_ALGID_KEY:
        return findOidInfo(algorithmIds<1>(key)[0], group);
    case capi::CRYPT_OID_INFO_SIGN_KEY: {
        const auto ids = algorithmIds<2>(key);
        return findOidInfo(ids[0], ids[1], group);
    }
    default:
        fail(capi::ERROR_INVALID_PARAMETER);
    }
}

} // namespace

PCCRYPT_OID_INFO CryptFindOIDInfo(DWORD dwKeyType, const void* pvKey, DWORD dwGroupId) {
    return guard<PCCRYPT_OID_INFO>(nullptr, [&] {
        if (pvKey == nullptr) {
            fail(capi::ERROR_INVALID_PARAMETER);
        }
        const CRYPT_OID_INFO* const found =
            find(dwKeyType & capi::CRYPT_OID_INFO_KEY_TYPE_MASK, pvKey, dwGroupId & capi::CRYPT_OID_INFO_GROUP_MASK);
        if (found == nullptr) {
            fail(capi::CRYPT_E_NOT_FOUND);
        }
        return found;
    });
}

} // namespace klunortredi::csp::exports
