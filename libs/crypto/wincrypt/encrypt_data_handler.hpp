#pragma once

#include "crypto/wincrypt/output_sink.hpp"
#include "orvik/plugin/data_handler.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace orvik::plugin::crypto {
class ICertificate;
}

namespace orvik::plugin::wincrypt {

class DecryptContext;

/// Decrypts a CMS EnvelopedData or AuthEnvelopedData (RFC 5652, 6; RFC 5083), BER or DER, with the private key that a
/// recipient's certificate is linked to.
///
/// Data is never kept, but for one octet: the last one is held back until finalize, so that the service's final update
/// carries data. One thread uses a handler at a time.
class ORVIK_EXPORT DecryptDataHandler : public IDataHandler {
public:
    struct ORVIK_EXPORT Params : IDataHandler::Params {
        ~Params() override;
        boost::shared_ptr<crypto::ICertificate> certificate; ///< the recipient's
    };

    /// Parameters for a message that does not fit into memory. update() then gives the service the key as soon as the
    /// service knows the recipients, so that plaintext flows while the message arrives: the PIN is asked for, and the
    /// exceptions of finalize() are thrown, by the update that has come so far. A recipient that is named by key
    /// identifier is found, too. finalize() returns an empty vector. Until it has returned true, what the sink took is
    /// not a result. Content of a message that is not encrypted does
    /// not reach the sink: SystemException CRYPT_E_MSG_ERROR.
    struct ORVIK_EXPORT SinkParams : Params {
        ~SinkParams() override;
        OutputSink sink; ///< takes the plaintext; empty: the parameters are as plain ones
    };

    DecryptDataHandler();
    ~DecryptDataHandler() override;

    [[nodiscard]] std::unique_ptr<IDataHandler::Params> paramsImpl() const override;
    /// Throws std::bad_cast for foreign parameters; CryptoException noCertificate, noContainer (no linked container),
    /// noProvider; SystemException when the service opens no message.
    bool initializeImpl(const IDataHandler::Params& params) override;
    /// Takes every octet it is given, less than 4 GiB at a time. Throws ApplicationException cancelled or
    /// SystemException. With a sink also what the sink threw, and what finalize() throws for the key and the
    /// decryption: the handler is unconfigured then. False before initialize.
    bool updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) override;
    /// Asks for the PIN where needed, decrypts, and gives the plaintext. True with an empty `out` for a message that is
    /// addressed to other certificates only. False before initialize and when no data came. Throws SystemException when
    /// the service does not take the end of the message (the handler stays open then), CryptoException
    /// privateKeyUnavailable when the PIN is refused, decryptionFailed when the message cannot be decrypted (the log
    /// has the reason).
    bool finalizeImpl(std::vector<unsigned char>& out) override;

private:
    boost::shared_ptr<DecryptContext> context_;
    bool pending_ = false;
    std::uint8_t pendingByte_ = 0;
};

} // namespace orvik::plugin::wincrypt
