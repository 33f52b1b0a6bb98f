#pragma once

/// A certificate with its properties: what every context of the same store element shares.

#include "x509/cert_info.hpp"
#include "x509/properties.hpp"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace klunortredi::csp {

/// Key handle kept in memory with a certificate (CERT_KEY_CONTEXT).
struct KeyHandle {
    unsigned long provider = 0;
    DWORD keySpec = 0;
    std::shared_ptr<void> release; ///< lets the handle go when the last copy dies; null: the caller keeps owning it
};

/// Thread-safe: the encoding never changes, the properties are guarded.
class Certificate {
public:
    /// The next number of an order that grows through the life of the process.
    static std::uint64_t takeOrdinal();
    /// Decodes `der` as CertInfo does. `ordinal` 0 takes the next number.
    explicit Certificate(ByteView der, Properties properties = {}, std::uint64_t ordinal = 0);
    Certificate(const Certificate&) = delete;
    Certificate& operator=(const Certificate&) = delete;
    ~Certificate() = default;

    [[nodiscard]] const CertInfo& decoded() const noexcept { return info_; }
    [[nodiscard]] const CERT_INFO& info() const noexcept { return info_.get(); }
    [[nodiscard]] ByteView encoded() const noexcept { return info_.encoded(); }
    /// SHA-1 of the encoding, 20 octets.
    [[nodiscard]] const Bytes& thumbprint() const noexcept { return thumbprint_; }
    /// Value of the subject key identifier extension, or where there is none SHA-1 of the public key's bits
    /// (RFC 5280, 4.2.1.2, method 1).
    [[nodiscard]] Bytes keyIdentifier() const;
    /// Grows in the order in which certificates come to a process: a place in a store that stays when others go.
    [[nodiscard]] std::uint64_t ordinal() const noexcept { return ordinal_; }

    [[nodiscard]] Properties properties() const;
    void setProperties(Properties properties);
    void changeProperties(const std::function<void(Properties&)>& change);

    [[nodiscard]] KeyHandle keyHandle() const;
    void setKeyHandle(KeyHandle handle);
    /// Keeps `handle` and gives it back; where one that `usable` takes is kept already, that one stays and is given. Of
    /// threads that find none at the same time, all get the first one's.
    KeyHandle offerKeyHandle(KeyHandle handle, bool (*usable)(unsigned long provider));

private:
    CertInfo info_;
    Bytes thumbprint_;
    std::uint64_t ordinal_;
    mutable std::mutex mutex_;
    Properties properties_;
    KeyHandle keyHandle_;
};

/// Whether both have the same issuer and serial number, which is what identifies a certificate in a store.
bool sameIssuerAndSerial(const CERT_INFO& a, const CERT_INFO& b) noexcept;

/// The extension of an OID; null when there is none. The pointer leads into `extensions`.
CERT_EXTENSION* findExtension(const char* oid, DWORD count, CERT_EXTENSION* extensions) noexcept;

} // namespace klunortredi::csp
