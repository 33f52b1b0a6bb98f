#pragma once

#include "orvik/plugin/crypto/i_certificate_store.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include <set>
#include <string>

namespace orvik::plugin::crypto {
class IProvider;
}

namespace orvik::plugin::wincrypt {

/// A system store opened by name ("my", "root", "ca", "trust" ...) or a store in memory. Opened on first use, closed by
/// the destructor; one thread uses a store at a time.
class ORVIK_EXPORT RegistryCertificateStore : public crypto::ICertificateStore {
public:
    /// With ViPNet CSP installed, the system stores that it lacks ("disallowed", "authroot", "trustedpeople",
    /// "trustedpublisher", in any case) become "trust". A memory store keeps the name for display only.
    RegistryCertificateStore(boost::string_view name, ICertificateStore::Type type);
    ~RegistryCertificateStore() override;

    /// Empty for a system store when no service with system stores is installed.
    [[nodiscard]] std::set<boost::shared_ptr<crypto::ICertificate>> certificates() const override;
    [[nodiscard]] boost::shared_ptr<crypto::ICertificate>
    findCertificate(const crypto::ICertificate& certificate) const override;
    /// Replaces the store's copy of the same certificate. Throws SystemException when refused.
    bool addCertificate(const crypto::ICertificate& certificate) override;
    /// False when the store does not hold it; throws SystemException when it is there and stays there.
    bool deleteCertificate(const crypto::ICertificate& certificate) override;
    [[nodiscard]] const std::string& name() const override;
    [[nodiscard]] Type type() const override;
    [[nodiscard]] void* handle() const override;

protected:
    [[nodiscard]] bool isOpen() const { return handle_ != nullptr; }
    /// Closes the store when it is open; the next use opens it again. A failure is logged.
    void close() const noexcept;

private:
    mutable void* handle_ = nullptr;
    std::string name_;
    Type type_;
};

/// The certificates of one provider's containers, in memory. Changes stay in memory: no container is touched.
class ORVIK_EXPORT ProviderCertificateStore : public RegistryCertificateStore {
public:
    explicit ProviderCertificateStore(const boost::shared_ptr<crypto::IProvider>& source);
    ~ProviderCertificateStore() override;

    bool addCertificate(const crypto::ICertificate& certificate) override;
    bool deleteCertificate(const crypto::ICertificate& certificate) override;
    /// Reads the provider's certificates when it opens the store; later changes of the containers are not seen. Throws
    /// SystemException when one of them cannot be added; the store is closed then, and the next call reads all again.
    [[nodiscard]] void* handle() const override;

private:
    boost::shared_ptr<crypto::IProvider> provider_;
};

} // namespace orvik::plugin::wincrypt
