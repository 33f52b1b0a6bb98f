#pragma once

#include "orvik/plugin/crypto/signature_factory.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstddef>
#include <cstdint>
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

/// Streams data into a CMS SignedData (RFC 5652) made with the key that a certificate is linked to.
///
/// Data is never kept, but for one octet: the last one is held back until finalize, so that the service's final update
/// carries data. One thread uses a creator at a time.
class ORVIK_EXPORT Creator : public crypto::SignatureFactory::Creator {
public:
    ~Creator() override;

    /// Throws std::bad_cast for foreign parameters; CryptoException noCertificate, keyUsageForbids, noContainer (no
    /// linked container), noProvider, badAttribute; SystemException when the service opens no message.
    bool initializeImpl(const IDataHandler::Params& params) override;
    /// Takes every octet it is given, less than 4 GiB at a time. Throws ApplicationException cancelled or
    /// SystemException. False before initialize.
    bool updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) override;
    /// Asks for the PIN where needed, signs, and gives the DER or BER of the message. False before initialize, and when
    /// the PIN is refused: the creator stays open for another finalize then. Throws SystemException when there was no
    /// data or the service refuses.
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
