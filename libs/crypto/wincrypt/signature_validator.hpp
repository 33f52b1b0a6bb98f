#pragma once

#include "orvik/plugin/crypto/signature_factory.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstddef>
#include <vector>

namespace orvik::plugin::wincrypt {

namespace binary {

struct ValidatorContext;

/// Checks a CMS SignedData against its first signer's certificate, which the message must carry. Neither the
/// certificate's validity nor its chain is looked at.
class ORVIK_EXPORT Validator : public crypto::SignatureFactory::Validator {
public:
    Validator();
    ~Validator() override;

    /// Throws std::bad_cast for foreign parameters. Uses the detached content, where there is one.
    bool initializeImpl(const IDataHandler::Params& params) override;
    /// Takes the whole signature in one call and returns the verdict, which a null `data` only repeats. `consumed` is
    /// not written. Must follow initialize. Never throws for a bad signature.
    bool updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) override;
    /// The last verdict; false before initialize and the second time. Gives no data.
    bool finalizeImpl(std::vector<unsigned char>& out) override;

private:
    boost::shared_ptr<ValidatorContext> context_;
};

} // namespace binary

namespace xmldsig {

struct ValidatorContext;

/// Checks every XML-DSig signature of a document; one that is not valid, or none at all, makes the verdict false.
class ORVIK_EXPORT Validator : public crypto::SignatureFactory::Validator {
public:
    Validator();
    ~Validator() override;

    /// Throws std::bad_cast for foreign parameters. The certificate, where there is one, tells the provider.
    bool initializeImpl(const IDataHandler::Params& params) override;
    /// Takes the whole document in one call; otherwise as binary::Validator.
    bool updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) override;
    bool finalizeImpl(std::vector<unsigned char>& out) override;

private:
    boost::shared_ptr<ValidatorContext> context_;
};

} // namespace xmldsig

} // namespace orvik::plugin::wincrypt
