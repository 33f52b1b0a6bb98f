#pragma once

/// Owners of the CryptoAPI's handles, under the CryptoAPI's own type names.
///
/// In an object that holds several, declare a provider context before the keys and hashes made from it: members go in
/// the reverse order, so the keys are given back first.

#include "crypto/wincrypt/scoped_handle.hpp"

#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/export.hpp"

#include <string>

namespace orvik::plugin::wincrypt {

/// A provider context (CryptAcquireContextW, CryptReleaseContext).
class ORVIK_EXPORT HCRYPTPROV : public scoped_handle<unsigned long> {
public:
    /// Holds nothing.
    HCRYPTPROV();
    /// Takes ownership of `handle` as it is.
    explicit HCRYPTPROV(unsigned long handle);
    /// Acquires a context; an empty `container` stands for none. A container that a CryptoPro provider does not find is
    /// tried once more under the provider's file-reader prefix. A failed acquisition is logged, its error number stored
    /// in `*error` when `error` is not null (left alone on success), and the wrapper holds nothing. CNG providers are
    /// not opened. Throws CryptoException emptyProviderName.
    HCRYPTPROV(const std::wstring& container, const std::wstring& provider, crypto::IProvider::Type type,
               unsigned long flags, unsigned* error);
    /// The same. Stores in `acquired` the name under which the container was found or made: `container`, or that with
    /// the file-reader prefix. Left alone when nothing is acquired.
    HCRYPTPROV(const std::wstring& container, const std::wstring& provider, crypto::IProvider::Type type,
               unsigned long flags, unsigned* error, std::wstring& acquired);
    /// The provider's container, or, when it names none, a verification context that never shows a dialogue. Errors as
    /// above.
    HCRYPTPROV(const crypto::IProvider& provider, unsigned* error);
    ~HCRYPTPROV() override;

private:
    void giveBack(unsigned long handle);

    bool known_;
    bool cng_;
};

/// A key; filled through CryptGenKey, CryptGetUserKey or CryptImportPublicKeyInfo.
class ORVIK_EXPORT HCRYPTKEY : public scoped_handle<unsigned long> {
public:
    HCRYPTKEY();
};

/// A hash; filled through CryptCreateHash.
class ORVIK_EXPORT HCRYPTHASH : public scoped_handle<unsigned long> {
public:
    HCRYPTHASH();
};

/// A message; filled through CryptMsgOpenToEncode or CryptMsgOpenToDecode.
class ORVIK_EXPORT HCRYPTMSG : public scoped_handle<void*> {
public:
    HCRYPTMSG();
};

/// The certificates carried in a message, as a store. Holds nothing when the store cannot be opened.
class ORVIK_EXPORT HCERTSTORE : public scoped_handle<void*> {
public:
    /// `message` (RFC 5652 SignedData, opened to decode) stays the caller's and must outlive the store.
    explicit HCERTSTORE(void* message);
};

} // namespace orvik::plugin::wincrypt
