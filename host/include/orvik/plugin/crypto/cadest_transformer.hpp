#pragma once

#include "orvik/plugin/crypto/signature_factory.hpp"

#include <boost/optional.hpp>

#include <string>

namespace orvik::plugin::crypto::cadest {

/// Turns a signature into one with a time-stamp (CAdES-T, ETSI EN 319 122-1).
class ORVIK_EXPORT Transformer : public SignatureFactory::Transformer {
public:
    struct ORVIK_EXPORT Params : IDataHandler::Params {
        ~Params() override;
        /// Addresses of time-stamp authorities, separated by blanks; they are tried in this order until one answers.
        boost::optional<std::string> authority;
    };
    ~Transformer() override;
    [[nodiscard]] std::unique_ptr<IDataHandler::Params> paramsImpl() const override;
    bool initializeImpl(const IDataHandler::Params& params) override;

protected:
    [[nodiscard]] const std::string& authority() const noexcept { return authority_; }

private:
    std::string authority_;
};

} // namespace orvik::plugin::crypto::cadest
