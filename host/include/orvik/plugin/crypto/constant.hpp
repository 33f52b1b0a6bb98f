#pragma once

/// Constants of the cryptographic part of the framework.

#include "orvik/plugin/export.hpp"

#include <map>
#include <string>

namespace orvik::plugin::crypto::constant {

inline constexpr const wchar_t* registry_provider_crypto_pro_alias_nameW = L"Crypto-Pro GOST R 34.10-2001 KC1 CSP";
inline constexpr const wchar_t* registry_provider_crypto_proW =
    L"Crypto-Pro GOST R 34.10-2001 Cryptographic Service Provider";
inline constexpr const wchar_t* registry_provider_crypto_pro_2012_alias_nameW = L"Crypto-Pro GOST R 34.10-2012 KC1 CSP";
inline constexpr const wchar_t* registry_provider_crypto_pro_2012W =
    L"Crypto-Pro GOST R 34.10-2012 Cryptographic Service Provider";
inline constexpr const wchar_t* registry_provider_crypto_pro_2012_ext_alias_nameW =
    L"Crypto-Pro GOST R 34.10-2012 KC1 Strong CSP";
inline constexpr const wchar_t* registry_provider_crypto_pro_2012_extW =
    L"Crypto-Pro GOST R 34.10-2012 Strong Cryptographic Service Provider";

/// Reader prefix under which CryptoPro CSP keeps containers in files.
inline constexpr const wchar_t* crypto_pro_file_reader_container_prefix_w = L"\\\\.\\HDIMAGE\\";

inline constexpr const char* subject_sign_tool_signal_com_3_5 = "Крипто-КОМ 3.5";
inline constexpr const char* subject_sign_tool_crypto_pro_4_0 = "\"КриптоПро CSP\" версия 4.0";

inline constexpr const char* store_trust = "trust";
inline constexpr const char* signature_attached = "attached";
inline constexpr const char* signature_detached = "detached";
inline constexpr const char* signature_xmldsig = "xmldsig";
inline constexpr const char* timestampFormat = "%Y-%m-%dT%H:%M:%SZ";
inline constexpr const wchar_t* BCRYPT_ITCS_SIGN_2012_256_ALGORITHM = L"GR 34.10-2012 256";

/// ALG_ID to dotted OID.
ORVIK_EXPORT extern const std::map<unsigned int, std::string> alg_id_aliases;

} // namespace orvik::plugin::crypto::constant
