#pragma once

/// Small stateless helpers around the CryptoAPI: identifiers, parameters, provider names, opaque handles.

#include "capi/types.h"
#include "crypto/wincrypt/provider_names.hpp"

#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>
#include <boost/utility/string_view.hpp>

#include <iosfwd>
#include <string>

namespace orvik::plugin::wincrypt::tools {

/// Read from a provider context; empty (0) when the service does not tell.
ORVIK_EXPORT std::wstring exportProviderName(unsigned long hProv);
ORVIK_EXPORT unsigned exportProviderType(unsigned long hProv);
ORVIK_EXPORT std::wstring exportContainerName(unsigned long hProv);
/// The container's unique name; its plain name when it has none.
ORVIK_EXPORT std::wstring exportContainerPath(unsigned long hProv);

/// A DWORD parameter of a provider; nothing when it cannot be read or is not 4 octets long.
ORVIK_EXPORT boost::optional<unsigned> param(unsigned long hProv, DWORD dwParam);
/// A DWORD parameter of a message. Throws SystemException.
ORVIK_EXPORT unsigned param(void* hMsg, DWORD dwParamType);
/// CERT_INFO that names the message's signer `index` (issuer and serial number). Pointers in it point into the result.
/// Throws SystemException.
ORVIK_EXPORT std::string certInfo(void* hMsg, unsigned index);
/// Feeds the whole stream into a message, the last chunk marked final. Always true. Throws SystemException.
ORVIK_EXPORT bool read(void* hMsg, std::istream& in);
/// Which key the container holds: AT_KEYEXCHANGE, else AT_SIGNATURE, else AT_KEYEXCHANGE.
ORVIK_EXPORT unsigned keySpec(unsigned long hProv);

/// Nothing for an empty OID (the service is not asked) and for one that the service does not know.
ORVIK_EXPORT boost::optional<ALG_ID> oid_to_alg_id(boost::string_view oid);
ORVIK_EXPORT boost::optional<std::string> oid_to_cng_alg_id(boost::string_view oid);
ORVIK_EXPORT boost::optional<std::string> alg_id_to_oid(const ALG_ID& id);

/// Whether there are octets in it. A null blob has none.
ORVIK_EXPORT bool check_blob(const CRYPT_BIT_BLOB* blob);
ORVIK_EXPORT bool check_blob(const CRYPT_DATA_BLOB* blob);

/// The framework's opaque handles and the CryptoAPI's types are the same values; ownership stays where it is.
ORVIK_EXPORT PCCERT_CONTEXT toPCCERT_CONTEXT(void* context);
ORVIK_EXPORT void* fromPCCERT_CONTEXT(PCCERT_CONTEXT context);
ORVIK_EXPORT unsigned long toHCRYPTPROV(void* handle);
ORVIK_EXPORT void* fromHCRYPTPROV(unsigned long handle);

/// Always false: on this platform every provider handle is a CryptoAPI handle.
ORVIK_EXPORT bool isCNG(unsigned long hProv);

} // namespace orvik::plugin::wincrypt::tools
