#pragma once

#include "crypto/wincrypt/output_sink.hpp"
#include "orvik/plugin/crypto/signature_factory.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvik::plugin::wincrypt::binary {

class Context;

/// Parameters for a message that also carries certificates of the signer's issuers. With the framework's own
/// parameters the signer's certificate is the only one.
struct ORVIK_EXPORT ChainParams : crypto::SignatureFactory::Creator::Params {
    ~ChainParams() override;
    std::vector<std::string> issuers; ///< DER; any order, not the signer's own
};

/// Parameters for what the framework's own do not offer. A member at its default changes nothing.
struct ORVIK_EXPORT ExtendedParams : ChainParams {
    ~ExtendedParams() override;

    /// Takes the message as the service makes it; finalize() returns an empty vector then. Empty: finalize() returns
    /// the whole message.
    OutputSink sink;
    /// Octets of the content, where they are known beforehand. update() beyond it and finalize() short of it throw
    /// SystemException(CRYPT_E_BAD_LEN); the PIN is not asked for. An attached message is DER then (definite lengths).
    /// The service takes the size in 32 bits: from 4 GiB - 1 octets on the message is BER of indefinite lengths, as
    /// without a size.
    std::optional<std::uint64_t> contentSize;
    /// The SignerInfo names the signer by the certificate's subject key identifier (RFC 5652, 5.3) instead of by issuer
    /// and serial number. initialize() throws CryptoException badCertificateData for a certificate without it.
    bool byKeyIdentifier = false;
    /// OID of the signature algorithm, where the key has several: 1.2.840.113549.1.1.10 is RSASSA-PSS (RFC 4056).
    /// Empty: the key's usual one. A service that does not know it opens no message.
    std::string signatureAlgorithm;
};

/// Streams data into a CMS SignedData (RFC 5652) made with the key that a certificate is linked to.
///
/// Data is never kept, but for one octet: the last one is held back until finalize, so that the service's final update
/// carries data. The message is collected in memory unless ExtendedParams carry a sink. One thread uses a creator at a
/// time.
///
/// finalize() asks for the PIN unless the key is authenticated already: to have it asked for before much data is read,
/// call crypto::AuthProvider::authorize() with the certificate's privateKey() first.
class ORVIK_EXPORT Creator : public crypto::SignatureFactory::Creator {
public:
    ~Creator() override;

    /// Throws std::bad_cast for foreign parameters; CryptoException noCertificate, keyUsageForbids, noContainer (no
    /// linked container), noProvider, badAttribute, privateKeyUnavailable (the certificate returns no private key);
    /// SystemException when the service opens no message. A second call drops the message of the first one before it
    /// opens its own; when it throws earlier, the first message stays open.
    bool initializeImpl(const IDataHandler::Params& params) override;
    /// Takes every octet it is given, less than 4 GiB at a time. Throws ApplicationException cancelled,
    /// SystemException, or what the sink threw. False before initialize.
    bool updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) override;
    /// Asks for the PIN where needed, signs, and returns the DER or BER of the message. False before initialize, and
    /// when the PIN is refused: the creator stays open for another finalize then. Throws SystemException when there was
    /// no data or the service refuses, and what the authorization or the sink threw; the creator is unconfigured after
    /// each of them.
    bool finalizeImpl(std::vector<unsigned char>& out) override;

protected:
    explicit Creator(std::uint32_t openFlags);

private:
    std::uint32_t openFlags_;
    boost::shared_ptr<Context> context_;
    bool pending_ = false;
    std::uint8_t pendingByte_ = 0;
};

namespace attached {

/// The content stands inside the message.
class ORVIK_EXPORT Creator : public binary::Creator {
public:
    Creator();
    ~Creator() override;
};

} // namespace attached

namespace detached {

/// The content stays outside.
class ORVIK_EXPORT Creator : public binary::Creator {
public:
    Creator();
    ~Creator() override;
};

} // namespace detached

} // namespace orvik::plugin::wincrypt::binary
