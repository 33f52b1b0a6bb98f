#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstdint>
#include <set>
#include <string>

namespace orvik::plugin::crypto {

class ICertificate;

/// A collection of certificates.
class ORVIK_EXPORT ICertificateStore {
public:
    enum Type : std::uint32_t { system = 0, memory = 1, provider = 2 };

    ICertificateStore() = default;
    ICertificateStore(const ICertificateStore&) = delete;
    ICertificateStore& operator=(const ICertificateStore&) = delete;
    virtual ~ICertificateStore();

    [[nodiscard]] virtual std::set<boost::shared_ptr<ICertificate>> certificates() const = 0;
    /// The store's copy, by issuer and serial number; null when it has none.
    [[nodiscard]] virtual boost::shared_ptr<ICertificate> findCertificate(const ICertificate& certificate) const = 0;
    virtual bool addCertificate(const ICertificate& certificate) = 0;
    virtual bool deleteCertificate(const ICertificate& certificate) = 0;
    [[nodiscard]] virtual const std::string& name() const = 0;
    [[nodiscard]] virtual Type type() const = 0;
    /// The back-end's handle, opened on first use; stays the store's. Null when it cannot be opened.
    [[nodiscard]] virtual void* handle() const = 0;
};

} // namespace orvik::plugin::crypto
