#include "crypto/wincrypt/signature_factory.hpp"

#include "crypto/wincrypt/signature_creator.hpp"
#include "crypto/wincrypt/signature_validator.hpp"
#include "orvik/plugin/constant.hpp"
#include "orvik/plugin/converter.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/ssl/cadest_transformers.hpp"
#include "orvik/plugin/ssl/xmldsig_creator.hpp"

#include <boost/filesystem/path.hpp>

#include <array>
#include <memory>
#include <string>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

using crypto::format::SignatureRequest;
using crypto::format::VerifySignatureRequest;
using Handler = std::unique_ptr<IDataHandler>;

template <class Creator>
Handler creator(const SignatureRequest& /*request*/) {
    return std::make_unique<Creator>();
}

template <class Transformer>
Handler transformer(const SignatureRequest& request) {
    return plugin::converter::to_bool(request.cadesT) ? std::make_unique<Transformer>() : Handler();
}

template <class Validator>
Handler validator(const VerifySignatureRequest& /*request*/) {
    return std::make_unique<Validator>();
}

std::string dataExtension(const FileInfo& file) {
    return boost::filesystem::path(file.path()).extension().string();
}

std::string attachedExtension(const FileInfo& file) {
    return dataExtension(file) + constant::p7sExtension;
}

std::string detachedExtension(const FileInfo& file) {
    return dataExtension(file) + constant::sigExtension;
}

/// The other way round: a signed XML document still ends in its own extension.
std::string xmldsigExtension(const FileInfo& file) {
    return constant::xmldsigExtension + dataExtension(file);
}

struct Format {
    const char* name;
    Handler (*creator)(const SignatureRequest&);
    Handler (*transformer)(const SignatureRequest&);
    Handler (*validator)(const VerifySignatureRequest&);
    std::string (*extension)(const FileInfo&);
};

constexpr std::array formats{
    Format{crypto::constant::signature_attached, creator<binary::attached::Creator>,
           transformer<ssl::cadest::binary::Transformer>, validator<binary::Validator>, attachedExtension},
    Format{crypto::constant::signature_detached, creator<binary::detached::Creator>,
           transformer<ssl::cadest::binary::Transformer>, validator<binary::Validator>, detachedExtension},
    Format{crypto::constant::signature_xmldsig, creator<ssl::xmldsig::Creator>,
           transformer<ssl::cadest::xmldsig::Transformer>, validator<xmldsig::Validator>, xmldsigExtension},
};

} // namespace
} // namespace internal

SignatureFactory::SignatureFactory(boost::string_view format) {
    using crypto::exception::CryptoException;
    for (const auto& row : internal::formats) {
        if (format == row.name) {
            creator_ = row.creator;
            transformer_ = row.transformer;
            validator_ = row.validator;
            extension_ = row.extension;
            return;
        }
    }
    raise(CryptoException(CryptoException::Code::unknownFormat), {"signature_factory", "SignatureFactory"});
}

SignatureFactory::~SignatureFactory() = default;

} // namespace orvik::plugin::wincrypt
