#pragma once

#include "orvik/plugin/crypto/signature_factory.hpp"

namespace orvik::plugin::ssl::xmldsig {

/// Signs an XML document (XML-DSig, enveloped) through the signer certificate's back-end hash.
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
