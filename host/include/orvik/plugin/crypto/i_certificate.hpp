#pragma once

#include "orvik/plugin/crypto/name_info.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include <cstdint>
#include <string>

namespace orvik::plugin {
namespace wincrypt {
class Certificate;
}
namespace cryptoki {
class Certificate;
}
namespace ssl {
class Certificate;
}
} // namespace orvik::plugin

namespace orvik::plugin::crypto {

class IPrivateKey;
class IProvider;
class IPublicKey;

/// An X.509 certificate. Names are UTF-8, octets travel in strings, times are UTC.
class ORVIK_EXPORT ICertificate {
public:
    enum class Format : std::uint32_t { pem = 0, der = 1, unknown = 2 };

    ICertificate() = default;
    ICertificate(const ICertificate&) = delete;
    ICertificate& operator=(const ICertificate&) = delete;
    virtual ~ICertificate();

    /// The back-end's own object, or null when the certificate belongs to another back-end.
    [[nodiscard]] virtual const wincrypt::Certificate* asWincrypt() const;
    [[nodiscard]] virtual const cryptoki::Certificate* asCryptoki() const;
    [[nodiscard]] virtual const ssl::Certificate* asSsl() const;
    [[nodiscard]] virtual boost::shared_ptr<IPrivateKey> privateKey() const = 0;
    [[nodiscard]] virtual boost::shared_ptr<IPublicKey> publicKey() const = 0;
    [[nodiscard]] virtual boost::shared_ptr<IProvider> provider(bool search) const = 0;
    [[nodiscard]] virtual boost::optional<std::wstring> container() const = 0;
    [[nodiscard]] virtual std::uint32_t version() const = 0;
    [[nodiscard]] virtual std::string raw() const = 0;
    [[nodiscard]] virtual std::string issuer() const = 0;
    [[nodiscard]] virtual std::string subject() const = 0;
    [[nodiscard]] virtual std::string serialNumber() const = 0;
    [[nodiscard]] virtual std::string hashAlgorithm() const = 0;
    [[nodiscard]] virtual std::string signatureAlgorithm() const = 0;
    [[nodiscard]] virtual std::string friendlyName() const = 0;
    [[nodiscard]] virtual NameInfo issuerNameInfo() const = 0;
    [[nodiscard]] virtual NameInfo subjectNameInfo() const = 0;
    [[nodiscard]] virtual boost::posix_time::ptime notBefore() const = 0;
    [[nodiscard]] virtual boost::posix_time::ptime notAfter() const = 0;
    /// First octet of the key-usage bits low, second octet high.
    [[nodiscard]] virtual boost::optional<std::uint16_t> keyUsage() const = 0;
    [[nodiscard]] virtual boost::optional<std::wstring> subjectSignTool() const = 0;
    [[nodiscard]] virtual boost::optional<std::wstring> issuerSignTool() const = 0;
    [[nodiscard]] virtual boost::posix_time::ptime privateKeyNotBefore() const = 0;
    [[nodiscard]] virtual boost::posix_time::ptime privateKeyNotAfter() const = 0;
    [[nodiscard]] virtual EnhancedKeyUsage enhancedKeyUsage() const = 0;
    /// SHA-1 of the encoding, 20 octets.
    [[nodiscard]] virtual boost::optional<std::string> thumbprint() const = 0;
    virtual void install(const IProvider& provider, boost::wstring_view container, const std::string& pin) const = 0;
    virtual bool setFriendlyName(boost::string_view name) const = 0;
    /// Whether the chain ends in trust, by what lies on this machine.
    [[nodiscard]] virtual bool chain() const = 0;
    /// The back-end's context; stays the certificate's.
    [[nodiscard]] virtual void* context() const = 0;
};

} // namespace orvik::plugin::crypto
