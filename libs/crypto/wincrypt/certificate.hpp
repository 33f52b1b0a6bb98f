#pragma once

#include "capi/types.h"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include <cstdint>
#include <string>

namespace orvik::plugin::wincrypt {

class PublicKey;

/// An X.509 certificate (RFC 5280) over a CryptoAPI certificate context, which it owns.
///
/// Readers answer with their empty value when the context, the property or the extension is missing or malformed. The
/// lazy caches are filled from const operations without a lock: one thread uses a certificate at a time.
class ORVIK_EXPORT Certificate : public crypto::ICertificate {
public:
    /// Adopts `context` (a PCCERT_CONTEXT, may be null) with the caller's reference to it.
    explicit Certificate(void* context);
    /// Throws ApplicationException emptyInput for no data, CryptoException badCertificateData when the text decodes to
    /// nothing, SystemException when the service refuses the octets.
    Certificate(boost::string_view data, const ICertificate::Format& format);
    /// As above, telling PEM and bare Base64 from DER by the first octets. Text before the armour is allowed.
    explicit Certificate(boost::string_view data);
    ~Certificate() override;

    [[nodiscard]] const Certificate* asWincrypt() const override;
    /// The key is opened on its own first use, not here. Throws SystemException when the context cannot be duplicated,
    /// ApplicationException cancelled and CryptoException authorizationRefused as they come, CryptoException
    /// privateKeyUnavailable for every other failure of the key object.
    [[nodiscard]] boost::shared_ptr<crypto::IPrivateKey> privateKey() const override;
    [[nodiscard]] boost::shared_ptr<crypto::IPublicKey> publicKey() const override;
    /// The provider that holds the key, by the link that install() wrote; with `search`, also by the signing tools that
    /// the certificate names. What a search answers, nothing included, is kept for the object's life.
    [[nodiscard]] boost::shared_ptr<crypto::IProvider> provider(bool search) const override;
    /// Name of the linked key container.
    [[nodiscard]] boost::optional<std::wstring> container() const override;
    /// As encoded: 2 means v3.
    [[nodiscard]] std::uint32_t version() const override;
    [[nodiscard]] std::string raw() const override;
    /// "2.5.4.3=Name;2.5.4.6=RU": dotted OIDs, never short names.
    [[nodiscard]] std::string issuer() const override;
    [[nodiscard]] std::string subject() const override;
    /// Least significant octet first, the reverse of the DER INTEGER.
    [[nodiscard]] std::string serialNumber() const override;
    [[nodiscard]] std::string hashAlgorithm() const override;
    [[nodiscard]] std::string signatureAlgorithm() const override;
    [[nodiscard]] std::string friendlyName() const override;
    [[nodiscard]] crypto::NameInfo issuerNameInfo() const override;
    [[nodiscard]] crypto::NameInfo subjectNameInfo() const override;
    [[nodiscard]] boost::posix_time::ptime notBefore() const override;
    [[nodiscard]] boost::posix_time::ptime notAfter() const override;
    [[nodiscard]] boost::optional<std::uint16_t> keyUsage() const override;
    /// Extension 1.2.643.100.111. The service hands its text over as wide characters.
    [[nodiscard]] boost::optional<std::wstring> subjectSignTool() const override;
    /// Extension 1.2.643.100.112, its octets taken as UTF-8; nothing when they are not.
    [[nodiscard]] boost::optional<std::wstring> issuerSignTool() const override;
    [[nodiscard]] boost::posix_time::ptime privateKeyNotBefore() const override;
    [[nodiscard]] boost::posix_time::ptime privateKeyNotAfter() const override;
    [[nodiscard]] crypto::EnhancedKeyUsage enhancedKeyUsage() const override;
    [[nodiscard]] boost::optional<std::string> thumbprint() const override;
    /// Writes the certificate into the container's exchange key, after unlocking it with `pin`, and links the two.
    /// Throws ApplicationException cancelled; CryptoException noContainer (no such container, or its key cannot be
    /// read), authorizationRefused, containerMismatch (it holds another key); SystemException for the rest.
    void install(const crypto::IProvider& provider, boost::wstring_view container,
                 const std::string& pin) const override;
    /// Changes the context, and so every store that shares it. False for an empty name or when the service refuses.
    bool setFriendlyName(boost::string_view name) const override;
    /// Whether the chain ends in trust, from what lies on this machine; never goes to the network.
    [[nodiscard]] bool chain() const override;
    /// The PCCERT_CONTEXT; stays the certificate's.
    [[nodiscard]] void* context() const override;

    /// Records `container` of `provider` as the place of the exchange key in the context's properties. `container` must
    /// end in a zero character behind its end. False when the service refuses.
    bool link(const crypto::IProvider& provider, boost::wstring_view container) const;

private:
    [[nodiscard]] PCCERT_CONTEXT native() const;
    /// Null when there is no context or it carries none.
    [[nodiscard]] CERT_INFO* info() const;

    mutable boost::optional<boost::shared_ptr<crypto::IProvider>> provider_; ///< set but null: searched in vain
    mutable boost::shared_ptr<crypto::IPrivateKey> privateKey_;
    mutable boost::shared_ptr<PublicKey> publicKey_;
    void* context_;
};

} // namespace orvik::plugin::wincrypt
