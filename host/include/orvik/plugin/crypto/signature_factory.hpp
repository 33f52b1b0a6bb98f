#pragma once

#include "orvik/plugin/crypto/format/signature_request.hpp"
#include "orvik/plugin/data_handler.hpp"
#include "orvik/plugin/file_info.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace orvik::plugin::crypto {

class ICertificate;

/// Gives the handlers of one signature format. The back-end's constructor fills the slots.
class ORVIK_EXPORT SignatureFactory {
public:
    class ORVIK_EXPORT Creator : public IDataHandler {
    public:
        struct ORVIK_EXPORT Params : IDataHandler::Params {
            ~Params() override;
            boost::shared_ptr<ICertificate> certificate;
            std::vector<format::SignatureRequest::Attribute> attributes;
        };
        ~Creator() override;
        [[nodiscard]] std::unique_ptr<IDataHandler::Params> paramsImpl() const override;
    };

    class ORVIK_EXPORT Validator : public IDataHandler {
    public:
        struct ORVIK_EXPORT Params : IDataHandler::Params {
            ~Params() override;
            boost::shared_ptr<ICertificate> certificate;
            boost::shared_ptr<std::istream> content; ///< detached content, empty for an attached signature
        };
        ~Validator() override;
        [[nodiscard]] std::unique_ptr<IDataHandler::Params> paramsImpl() const override;
    };

    class ORVIK_EXPORT Transformer : public IDataHandler {
    public:
        ~Transformer() override;
    };

    SignatureFactory(const SignatureFactory&) = default;
    SignatureFactory& operator=(const SignatureFactory&) = default;
    virtual ~SignatureFactory();

    [[nodiscard]] std::unique_ptr<IDataHandler> creator(const format::SignatureRequest& request) const {
        return creator_(request);
    }
    /// Empty when the request asks for no time-stamp.
    [[nodiscard]] std::unique_ptr<IDataHandler> transformer(const format::SignatureRequest& request) const {
        return transformer_(request);
    }
    [[nodiscard]] std::unique_ptr<IDataHandler> validator(const format::VerifySignatureRequest& request) const {
        return validator_(request);
    }
    /// Suffix of the signature's file name, to be put behind the data file's name without its extension.
    [[nodiscard]] std::string extension(const FileInfo& file) const { return extension_(file); }

protected:
    SignatureFactory() = default;

    // NOLINTBEGIN(cppcoreguidelines-non-private-member-variables-in-classes): the slots are the derived class's to fill
    std::function<std::unique_ptr<IDataHandler>(const format::SignatureRequest&)> creator_;
    std::function<std::unique_ptr<IDataHandler>(const format::SignatureRequest&)> transformer_;
    std::function<std::unique_ptr<IDataHandler>(const format::VerifySignatureRequest&)> validator_;
    std::function<std::string(const FileInfo&)> extension_;
    // NOLINTEND(cppcoreguidelines-non-private-member-variables-in-classes)
};

} // namespace orvik::plugin::crypto
