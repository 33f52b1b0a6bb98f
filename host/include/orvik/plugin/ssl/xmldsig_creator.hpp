#pragma once

#include "orvik/plugin/crypto/signature_factory.hpp"

namespace orvik::plugin::ssl::xmldsig {

/// Signs an XML document (XML-DSig, enveloped) through the signer certificate's back-end hash, with the properties of
/// XAdES-BES (ETSI EN 319 132-1): the signing time, which is that of the parameters' signed attribute signingTime or
/// else now, and the signer's certificate (SigningCertificateV2).
///
/// initialize() refuses, with a CryptoException, a certificate without the key usage digitalSignature
/// (keyUsageForbids), other signed attributes, a signing time that is not one, and any attribute without properties
/// (badAttribute), and an algorithm that is not supported. finalize() refuses, with unknownFormat, what XmlDocument
/// refuses, a document that is signed already, and one in which a comment or a CDATA section parts a text.
class ORVIK_EXPORT Creator : public crypto::SignatureFactory::Creator {
public:
    /// The framework's own parameters do as well: properties are written then.
    struct ORVIK_EXPORT Params : crypto::SignatureFactory::Creator::Params {
        ~Params() override;
        bool properties = true; ///< false: plain XML-DSig
    };

    Creator();
    ~Creator() override;
    [[nodiscard]] std::unique_ptr<IDataHandler::Params> paramsImpl() const override;
    bool initializeImpl(const IDataHandler::Params& params) override;
    bool updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) override;
    bool finalizeImpl(std::vector<unsigned char>& out) override;

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

} // namespace orvik::plugin::ssl::xmldsig
