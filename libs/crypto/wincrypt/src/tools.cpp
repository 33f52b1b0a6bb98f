#include "crypto/wincrypt/tools.hpp"

#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include "capi/constants.hpp"
#include "lenient.hpp"

#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"

#include <boost/algorithm/string/predicate.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

namespace orvik::plugin::wincrypt::tools {

namespace internal {
namespace {

/// The GOST 2012 providers name their containers in Windows-1251, all others in UTF-8. Empty for what is no text in the
/// encoding, as for what cannot be read.
std::wstring containerText(unsigned long hProv, const std::string& text) {
    const unsigned type = exportProviderType(hProv);
    const bool cp1251 = type == capi::PROV_GOST_2012_256 || type == capi::PROV_GOST_2012_512;
    return orEmpty(
        [&] { return cp1251 ? plugin::converter::cp1251_to_utf16(text) : plugin::converter::utf8_to_utf16(text); });
}

PCCRYPT_OID_INFO findOid(boost::string_view oid) {
    return oid.empty() ? nullptr : CryptFindOIDInfo(capi::CRYPT_OID_INFO_OID_KEY, std::string(oid).c_str(), 0);
}

bool hasUserKey(unsigned long hProv, DWORD spec) {
    HCRYPTKEY key;
    return CryptGetUserKey(hProv, spec, key.put()) != 0;
}

} // namespace
} // namespace internal

std::wstring exportProviderName(unsigned long hProv) {
    return orEmpty([&] { return plugin::converter::utf8_to_utf16(CryptGetProvParamEx(hProv, capi::PP_NAME)); });
}

unsigned exportProviderType(unsigned long hProv) {
    DWORD size = 0;
    if (!CryptGetProvParam(hProv, capi::PP_PROVTYPE, nullptr, &size, 0) || size == 0) {
        return 0;
    }
    std::vector<BYTE> value(size);
    if (!CryptGetProvParam(hProv, capi::PP_PROVTYPE, value.data(), &size, 0)) {
        return 0;
    }
    unsigned type = 0;
    std::memcpy(&type, value.data(), std::min(sizeof type, value.size()));
    return type;
}

std::wstring exportContainerName(unsigned long hProv) {
    return internal::containerText(hProv, CryptGetProvParamEx(hProv, capi::PP_CONTAINER));
}

std::wstring exportContainerPath(unsigned long hProv) {
    const auto path = CryptGetProvParamEx(hProv, capi::PP_UNIQUE_CONTAINER);
    return path.empty() ? exportContainerName(hProv) : internal::containerText(hProv, path);
}

boost::optional<unsigned> param(unsigned long hProv, DWORD dwParam) {
    unsigned value = 0;
    DWORD size = 0;
    if (!CryptGetProvParam(hProv, dwParam, nullptr, &size, 0) || size != sizeof value ||
        !CryptGetProvParam(hProv, dwParam, reinterpret_cast<BYTE*>(&value), &size, 0)) {
        return boost::none;
    }
    return value;
}

unsigned keySpec(unsigned long hProv) {
    for (const DWORD spec : {capi::AT_KEYEXCHANGE, capi::AT_SIGNATURE}) {
        if (internal::hasUserKey(hProv, spec)) {
            return spec;
        }
    }
    return capi::AT_KEYEXCHANGE;
}

boost::optional<ALG_ID> oid_to_alg_id(boost::string_view oid) {
    const auto* info = internal::findOid(oid);
    return info != nullptr ? boost::make_optional(info->u.Algid) : boost::none;
}

boost::optional<std::string> oid_to_cng_alg_id(boost::string_view oid) {
    const auto* info = internal::findOid(oid);
    if (info == nullptr || info->pwszCNGAlgid == nullptr) {
        return boost::none;
    }
    return plugin::converter::utf16_to_utf8(info->pwszCNGAlgid);
}

boost::optional<std::string> alg_id_to_oid(const ALG_ID& id) {
    const auto found = crypto::constant::alg_id_aliases.find(id);
    return found != crypto::constant::alg_id_aliases.end() ? boost::make_optional(found->second) : boost::none;
}

bool check_blob(const CRYPT_BIT_BLOB* blob) {
    return blob != nullptr && blob->pbData != nullptr && blob->cbData != 0;
}

bool check_blob(const CRYPT_DATA_BLOB* blob) {
    return blob != nullptr && blob->pbData != nullptr && blob->cbData != 0;
}

PCCERT_CONTEXT toPCCERT_CONTEXT(void* context) {
    return static_cast<PCCERT_CONTEXT>(context);
}

void* fromPCCERT_CONTEXT(PCCERT_CONTEXT context) {
    return const_cast<CERT_CONTEXT*>(context);
}

unsigned long toHCRYPTPROV(void* handle) {
    return reinterpret_cast<std::uintptr_t>(handle);
}

void* fromHCRYPTPROV(unsigned long handle) {
    return reinterpret_cast<void*>(std::uintptr_t{handle});
}

bool isCNG(unsigned long /*hProv*/) {
    return false;
}

} // namespace orvik::plugin::wincrypt::tools
