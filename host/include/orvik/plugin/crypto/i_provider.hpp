#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace orvik::plugin {
class Session;
}

namespace orvik::plugin::crypto {

class ICertificate;
class IHash;
class IProvider;
class IPublicKey;

/// Without a device first, then by type, name and container. The back-end defines it.
ORVIK_EXPORT bool operator<(const IProvider& a, const IProvider& b);

/// A hardware device behind a provider; back-ends without devices have none.
struct Device {
    std::string id;
    friend bool operator<(const Device& a, const Device& b) { return a.id < b.id; }
};

/// A cryptographic service provider, optionally narrowed to one key container.
class ORVIK_EXPORT IProvider {
public:
    /// CryptoAPI provider type number; any value, the named ones are those that the code speaks of.
    enum Type : std::uint32_t {
        rsaFull = 1,
        rsaAes = 24,
        gost2001 = 75,
        gost2012_256 = 80,
        gost2012_512 = 81,
    };
    /// Whose software a provider belongs to. The embedded service stands in CryptoPro's slot and shares its family.
    enum class Family : std::uint32_t { unknown = 0, microsoft = 1, cryptoki = 2, vipNet = 3, cryptoPro = 4 };
    /// Kind of provider, by maker.
    enum class Kind : std::uint32_t {
        unknown = 0,
        microsoft = 1,
        vipNet = 3,
        cryptoPro = 4,
        signalCom = 5,
        embedded = 6
    };

    IProvider() = default;
    IProvider(const IProvider&) = delete;
    IProvider& operator=(const IProvider&) = delete;
    virtual ~IProvider();

    /// Orders by what the providers are, not where the objects lie.
    struct Less {
        bool operator()(const boost::shared_ptr<IProvider>& a, const boost::shared_ptr<IProvider>& b) const {
            return *a < *b;
        }
    };
    using Set = std::set<boost::shared_ptr<IProvider>, Less>;

    /// Text that names the signing tool in the certificate extension 1.2.643.100.111, UTF-8.
    [[nodiscard]] virtual boost::optional<std::string> subjectSignTool() const = 0;
    [[nodiscard]] virtual boost::optional<std::string> containerPrefix() const = 0;
    [[nodiscard]] virtual Set providers(const Session& session) const = 0;
    [[nodiscard]] virtual std::vector<std::wstring> containers() const = 0;
    [[nodiscard]] virtual std::set<std::string> algorithms() const = 0;
    [[nodiscard]] virtual bool hasAlgorithm(const std::string& oid) const = 0;
    [[nodiscard]] virtual std::vector<boost::shared_ptr<ICertificate>> certificates() const = 0;
    [[nodiscard]] virtual boost::shared_ptr<IPublicKey> publicKey() const = 0;
    [[nodiscard]] virtual boost::optional<Device> device() const = 0;
    [[nodiscard]] virtual boost::shared_ptr<ICertificate> certificate(const std::wstring& container) const = 0;
    [[nodiscard]] virtual boost::shared_ptr<ICertificate>
    certificate(const boost::shared_ptr<ICertificate>& like) const = 0;
    [[nodiscard]] virtual boost::shared_ptr<IHash> hash(const boost::shared_ptr<ICertificate>& certificate,
                                                        boost::string_view algorithm) const = 0;
    [[nodiscard]] virtual const Type& type() const = 0;
    [[nodiscard]] virtual const std::wstring& name() const = 0;
    [[nodiscard]] virtual boost::optional<std::wstring> container() const = 0;
    [[nodiscard]] virtual boost::optional<std::wstring> container(const IPublicKey& key) const = 0;
    virtual void deleteContainer(const std::wstring& container, const std::string& reason) const = 0;
    [[nodiscard]] virtual boost::optional<std::wstring> version() const = 0;
    [[nodiscard]] virtual std::vector<unsigned char> randomBytes(std::size_t length) const = 0;
};

} // namespace orvik::plugin::crypto
