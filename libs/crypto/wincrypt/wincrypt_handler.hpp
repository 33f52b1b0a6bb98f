#pragma once

/// The CryptoAPI of the installed service, function by function.
///
/// Each forwarder has the name and signature of its entry point (capi/entry_points.h) and returns what the service
/// returns; FALSE, 0 or null also when the service lacks the entry point. A failure is not thrown: read
/// GetLastErrorEx() or throw SystemException() at the next line. The first call in a process picks the service and
/// opens its libraries; with none installed every forwarder throws CryptoException noProvider. Calls from several
/// threads are safe as far as the service itself allows.

#include "capi/entry_points.h"

#include "orvik/plugin/export.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace orvik::plugin::wincrypt {

class Certificate;

#define WINCRYPT_DECLARE_FORWARDED(result, member, parameters) ORVIK_EXPORT result member parameters;
#define WINCRYPT_DECLARE_LOADER(result, member, parameters)
#define WINCRYPT_DECLARE(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                     \
    WINCRYPT_DECLARE_##reach(result, member, parameters)
KLUNORTREDI_ENTRY_POINTS(WINCRYPT_DECLARE)
#undef WINCRYPT_DECLARE
#undef WINCRYPT_DECLARE_LOADER
#undef WINCRYPT_DECLARE_FORWARDED

/// The calling thread's last error of the service, picking a service when none is picked yet; 0 with none installed.
/// Never throws.
ORVIK_EXPORT unsigned GetLastErrorEx();
/// Sets it; does nothing with no service installed. Never throws.
ORVIK_EXPORT void SetLastErrorEx(unsigned code);
/// Always 0, whatever SetLastError was given: code that needs the value calls GetLastErrorEx.
ORVIK_EXPORT unsigned GetLastError();
/// The same as SetLastErrorEx.
ORVIK_EXPORT void SetLastError(unsigned code);

/// 1 when the service of that crypto::IProvider::Family is installed, else 0; picks a service when none is picked yet
/// and never changes one that is. Throws CryptoException noProvider when none is installed at all.
ORVIK_EXPORT unsigned CoInitializeEx(unsigned family);
/// Nothing to do on this platform; 0.
ORVIK_EXPORT int CoInitialize(void* reserved);
ORVIK_EXPORT void CoUninitialize();

/// Sizing helpers: ask the size, then fetch. The result holds octets, not text.
///
/// "One short": the result ends one octet before the value does, which drops a text's terminating zero. The value's
/// last octet then lies at data()[size()], where a reader of a decoded structure finds it through the structure's own
/// pointers; those point into the result and survive a move, not a copy.

/// Parameter of a provider, one short. Empty on failure.
ORVIK_EXPORT std::string CryptGetProvParamEx(unsigned long hProv, DWORD dwParam);
/// Parameter of a key. Empty on failure.
ORVIK_EXPORT std::string CryptGetKeyParamEx(unsigned long hKey, DWORD dwParam);
/// Property of a certificate of 2 to 102400 octets, one short. Empty on failure and for other sizes.
ORVIK_EXPORT std::string CertGetCertificateContextPropertyEx(PCCERT_CONTEXT pCertContext, DWORD dwPropId);
/// Decoded structure of 2 to 102400 octets, one short. Empty on failure and for other sizes.
ORVIK_EXPORT std::string CryptDecodeObjectEx(DWORD dwEncodingType, const char* lpszStructType, const BYTE* pbEncoded,
                                             DWORD cbEncoded);
/// Parameter of a message. Throws SystemException.
ORVIK_EXPORT std::string CryptMsgGetParamEx(void* hMsg, DWORD dwParamType, DWORD dwIndex);
/// DER of a structure. Throws SystemException; empty when the service reports size 0.
ORVIK_EXPORT std::string CryptEncodeObjectEx(DWORD dwEncodingType, const char* lpszStructType,
                                             const void* pvStructInfo);
/// CERT_PUBLIC_KEY_INFO of a container's key, 2 to 102400 octets. Throws SystemException; empty for other sizes.
ORVIK_EXPORT std::string CryptExportPublicKeyInfoEx(unsigned long hProv, DWORD dwKeySpec, DWORD dwCertEncodingType);

/// Names of the providers of every installed service (not of the picked one only) by provider type; of two with one
/// type, the first enumerated.
ORVIK_EXPORT std::map<unsigned, std::wstring> EnumProvidersEx();

/// Every certificate of a system store. Empty for an empty name and for a store that cannot be opened.
ORVIK_EXPORT std::set<boost::shared_ptr<Certificate>> CertEnumCertificatesInStoreEx(boost::string_view storeName);

namespace converter {

/// Whole seconds; the rest of the FILETIME is dropped.
ORVIK_EXPORT boost::posix_time::ptime to_ptime(const FILETIME& time);
/// A FILETIME as one number: 100-nanosecond intervals since 1601-01-01 UTC.
ORVIK_EXPORT std::int64_t to_filetime(const boost::posix_time::ptime& time);

} // namespace converter

} // namespace orvik::plugin::wincrypt
