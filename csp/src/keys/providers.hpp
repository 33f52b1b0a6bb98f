#pragma once

/// The providers of the service: one row each.

#include "capi/constants.hpp"
#include "crypto/algorithms.hpp"

#include <array>
#include <string_view>

namespace klunortredi::csp {

/// A provider: the key pairs it makes and keeps, and the hashes it offers. Public keys of every algorithm of the
/// service can be imported with each.
struct ProviderRecord {
    DWORD type;
    std::string_view name; ///< ASCII
    std::string_view keyOid;
    std::string_view exchangeSet;  ///< parameter set of an AT_KEYEXCHANGE key when none was chosen; empty for RSA
    std::string_view signatureSet; ///< the same for AT_SIGNATURE
    bool gostDigests;              ///< offers the GOST hashes beside the SHA ones
};

inline constexpr std::array providers{
    ProviderRecord{capi::PROV_GOST_2012_256, "Klunortredi GOST R 34.10-2012 (256) Cryptographic Service Provider",
                   "1.2.643.7.1.1.1.1", "1.2.643.2.2.36.0", "1.2.643.2.2.35.1", true},
    ProviderRecord{capi::PROV_GOST_2012_512, "Klunortredi GOST R 34.10-2012 (512) Cryptographic Service Provider",
                   "1.2.643.7.1.1.1.2", "1.2.643.7.1.2.1.2.1", "1.2.643.7.1.2.1.2.1", true},
    ProviderRecord{capi::PROV_GOST_2001_DH, "Klunortredi GOST R 34.10-2001 Cryptographic Service Provider",
                   "1.2.643.2.2.19", "1.2.643.2.2.36.0", "1.2.643.2.2.35.1", true},
    ProviderRecord{capi::PROV_RSA_AES, "Klunortredi RSA and AES Cryptographic Service Provider", "1.2.840.113549.1.1.1",
                   "", "", false},
};

/// The version of the service as PP_VERSION tells it: major number in bits 8 to 15, minor number in bits 0 to 7.
inline constexpr DWORD serviceVersion = (KLUNORTREDI_VERSION_MAJOR << 8U) | KLUNORTREDI_VERSION_MINOR;

/// The provider that CryptAcquireContextW means; an empty `name` is the default of the type. Throws ApiError with
/// NTE_BAD_PROV_TYPE (no type number at all), NTE_PROV_TYPE_NOT_DEF (no provider of the type), NTE_KEYSET_NOT_DEF (no
/// provider of that name) or NTE_PROV_TYPE_NO_MATCH (it has another type).
const ProviderRecord& findProvider(std::wstring_view name, DWORD type);

const KeyAlgorithm& keyAlgorithm(const ProviderRecord& provider) noexcept;

/// Whether a hash of that algorithm can be created with the provider.
bool offers(const ProviderRecord& provider, const DigestAlgorithm& digest) noexcept;

} // namespace klunortredi::csp
