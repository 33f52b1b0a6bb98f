#pragma once

#include "orvik/plugin/crypto/signature_factory.hpp"

namespace orvik::plugin::ssl::xmldsig {

/// Signs an XML document (XML-DSig, enveloped) through the signer certificate's back-end hash. initialize() refuses,
/// with a CryptoException, a certificate without the key usage digitalSignature (keyUsageForbids), signed attributes,
/// which an XML signature has no place for (badAttribute), and an algorithm that is not supported. finalize() refuses,
/// with unknownFormat, what XmlDocument refuses, a document that is signed already, and one in which a comment or a
/// CDATA section parts a text.
class ORVIK_EXPORT Creator : public crypto::SignatureFactory::Creator {
public:
    Creator();
    ~Creator() override;
    bool initializeImpl(const IDataHandler::Params& params) override;
    bool updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) override;
    bool finalizeImpl(std::vector<unsigned char>& out) override;

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

} // namespace orvik::plugin::ssl::xmldsig
