#pragma once

#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace orvik::plugin::wincrypt {

/// One provider of the CryptoAPI service, optionally narrowed to one key container.
///
/// Holds nothing but the provider's identity: every operation opens its own provider context and closes it. Reading
/// operations log a failure and answer with nothing; only deleteContainer() throws for a failure of the service.
/// Immutable, so that several threads may use one object.
class ORVIK_EXPORT Provider : public crypto::IProvider {
public:
    /// `name` may be any of the provider's names; the canonical one is kept.
    Provider(const IProvider::Type& type, const std::wstring& name,
             const boost::optional<std::wstring>& container = boost::none);
    Provider(const unsigned long& type, const std::wstring& name,
             const boost::optional<std::wstring>& container = boost::none);
    /// The provider of the certificate's key, as a whole: without the key's container. Throws CryptoException
    /// noProvider when the certificate has none.
    explicit Provider(const crypto::ICertificate& certificate);
    ~Provider() override;

    [[nodiscard]] boost::optional<std::string> subjectSignTool() const override;
    [[nodiscard]] boost::optional<std::string> containerPrefix() const override;
    /// The installed providers, whatever the session: found once per process.
    [[nodiscard]] Set providers(const Session& session) const override;
    /// Fully qualified names of the provider's containers, in the service's order.
    [[nodiscard]] std::vector<std::wstring> containers() const override;
    /// Dotted OIDs; for an algorithm without one, the service's name of it with its terminating zero.
    [[nodiscard]] std::set<std::string> algorithms() const override;
    /// Answered from the set of the first call that found any algorithm at all.
    [[nodiscard]] bool hasAlgorithm(const std::string& oid) const override;
    /// The certificates that lie in the provider's containers. RSA ones are left out.
    [[nodiscard]] std::vector<boost::shared_ptr<crypto::ICertificate>> certificates() const override;
    /// The public key of this object's container; null when it cannot be had, also when the person cancels.
    [[nodiscard]] boost::shared_ptr<crypto::IPublicKey> publicKey() const override;
    /// Always empty.
    [[nodiscard]] boost::optional<crypto::Device> device() const override;
    /// The certificate that lies in a container; null when there is none.
    [[nodiscard]] boost::shared_ptr<crypto::ICertificate> certificate(const std::wstring& container) const override;
    /// The first certificate in the containers with the serial number of `like`; null when there is none.
    [[nodiscard]] boost::shared_ptr<crypto::ICertificate>
    certificate(const boost::shared_ptr<crypto::ICertificate>& like) const override;
    /// A hash on the certificate's key, or on this provider when `certificate` is null.
    [[nodiscard]] boost::shared_ptr<crypto::IHash> hash(const boost::shared_ptr<crypto::ICertificate>& certificate,
                                                        boost::string_view algorithm) const override;
    [[nodiscard]] const Type& type() const override;
    [[nodiscard]] const std::wstring& name() const override;
    [[nodiscard]] boost::optional<std::wstring> container() const override;
    /// The container whose key is `key`, by its fully qualified name.
    [[nodiscard]] boost::optional<std::wstring> container(const crypto::IPublicKey& key) const override;
    /// Deletes a container with its keys. `reason` is for the log. Throws SystemException with the service's code, or
    /// ApplicationException cancelled when the person declined.
    void deleteContainer(const std::wstring& container, const std::string& reason) const override;
    /// "major.minor". Empty also for providers of type 1, which are too slow to be asked.
    [[nodiscard]] boost::optional<std::wstring> version() const override;
    /// `length` octets, or none when the service fails.
    [[nodiscard]] std::vector<unsigned char> randomBytes(std::size_t length) const override;

    /// Prepares the service; whether providers of that family are installed. Throws CryptoException noProvider when no
    /// service is.
    static bool initialize(unsigned long family);
    static bool initialize(IProvider::Family family);

    /// The first installed provider whose name contains `name`, in any case; null when there is none.
    static boost::shared_ptr<IProvider> provider(const std::wstring& name);
    /// The public key of the provider's container, first asked for silently, then with the service's dialogues allowed.
    /// Null when it cannot be had; throws ApplicationException cancelled when the person cancels.
    static boost::shared_ptr<crypto::IPublicKey> publicKey(const IProvider& provider);
    static std::vector<std::wstring> containers(const IProvider& provider);
    /// The containers whose last path component is `filter`; all of them when it is empty.
    static std::vector<std::wstring> containers(const IProvider& provider, const std::wstring& filter);
    /// Deletes the containers that `filter` selects as above. Failures are logged.
    static void deleteContainers(const IProvider& provider, const std::wstring& filter);

private:
    explicit Provider(const IProvider& other); // the same provider as a whole

    Type type_;
    std::wstring name_;
    boost::optional<std::wstring> container_;
    boost::shared_ptr<void> attachment_; // a place in the object's layout; nothing sets it
};

} // namespace orvik::plugin::wincrypt
