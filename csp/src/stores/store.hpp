#pragma once

/// Certificate stores: what an HCERTSTORE stands for.

#include "core/handle_table.hpp"
#include "stores/search_keys.hpp"
#include "x509/certificate.hpp"

#include <functional>
#include <memory>
#include <vector>

namespace klunortredi::csp {

/// What adding does when the store holds a certificate of the same issuer and serial number.
enum class AddRule : DWORD {
    New = capi::CERT_STORE_ADD_NEW,                  ///< refuse with CRYPT_E_EXISTS
    UseExisting = capi::CERT_STORE_ADD_USE_EXISTING, ///< keep it, give it the properties that it lacks
    Replace = capi::CERT_STORE_ADD_REPLACE_EXISTING, ///< put the new one with its own properties in its place
    Always = capi::CERT_STORE_ADD_ALWAYS,            ///< add beside it
};

/// A CRL as a store holds it: not decoded, so that a damaged one harms nobody who does not need it.
struct StoredCrl {
    Bytes der;
    std::string name; ///< for messages: the file's path, or where else it stands
};

/// A search: for certificates for which `meets` is true, which can only be at `place`.
struct Criterion {
    std::function<bool(const Certificate&)> meets;
    SearchPlace place{};
};

/// Result of a search.
struct Match {
    std::shared_ptr<Certificate> certificate; ///< null: none was found
    /// When none was found: why an entry that may be meant cannot be read (a CryptoAPI code); 0 when there is no such
    /// entry, so that the answer is certain.
    DWORD unread = 0;
};

/// An entry of a store that is not one of its certificates or CRLs.
struct UnusableEntry {
    std::string file;
    DWORD code = 0; ///< ERROR_INVALID_DATA for wrong contents, else why it cannot be read
};

/// A set of certificates. Thread-safe.
class Store {
public:
    Store() = default;
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    virtual ~Store() = default;

    /// What is there now, by growing ordinal. ApiError when the store cannot be read; entries that cannot are left out.
    virtual std::vector<std::shared_ptr<Certificate>> certificates() = 0;
    /// The first certificate after the ordinal `after` (0: from the start) that meets the criterion. A search from the
    /// start sees what is there now, one that goes on what was there at its start. ApiError when the store cannot be
    /// read.
    virtual Match next(std::uint64_t after, const Criterion& wanted) = 0;
    /// What is there now. A file that cannot be read, is too large or is not a CRL is left out with a warning.
    virtual std::vector<StoredCrl> crls() = 0;
    /// What stands in the store and cannot be read as one of its certificates.
    virtual std::vector<UnusableEntry> unusable() { return {}; }
    /// Adds a copy of `certificate`, properties included; gives the store's own element.
    virtual std::shared_ptr<Certificate> add(const Certificate& certificate, AddRule rule) = 0;
    /// ApiError(CRYPT_E_NOT_FOUND) when the certificate is not there any more.
    virtual void remove(const Certificate& certificate) = 0;
    /// Changes the properties of an element, and of what is saved of it.
    virtual void change(Certificate& certificate, const std::function<void(Properties&)>& change) = 0;
};

/// One opening of a store.
class OpenStore {
public:
    OpenStore(std::shared_ptr<Store> store, bool readOnly) : store_(std::move(store)), readOnly_(readOnly) {}

    [[nodiscard]] Store& store() const noexcept { return *store_; }
    /// The store for changing; ApiError(ERROR_ACCESS_DENIED) when it was opened for reading.
    [[nodiscard]] Store& writable() const;
    /// What CERT_CONTEXT.hCertStore says. Set once, when the handle is given.
    void* handle = nullptr;

private:
    std::shared_ptr<Store> store_;
    bool readOnly_;
};

/// Gives the handle of a newly opened store.
void* addStore(std::shared_ptr<Store> store, bool readOnly);
/// The store behind a handle. Throws ApiError(ERROR_INVALID_HANDLE) for one that is not open.
std::shared_ptr<OpenStore> openStore(void* handle);
/// Takes the handle back. The contexts that came from the store live on.
std::shared_ptr<OpenStore> closeStore(void* handle);

} // namespace klunortredi::csp
