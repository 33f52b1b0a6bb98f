#pragma once

#include "orvik/plugin/crypto/i_public_key.hpp"

namespace orvik::plugin::crypto {

/// Holds the three parts; how two keys compare is the back-end's.
class ORVIK_EXPORT PublicKey : public IPublicKey {
public:
    PublicKey();
    ~PublicKey() override;

    [[nodiscard]] const std::string& algObjId() const override { return algObjId_; }
    [[nodiscard]] const std::string& algParams() const override { return algParams_; }
    [[nodiscard]] const std::string& key() const override { return key_; }

protected:
    // NOLINTBEGIN(cppcoreguidelines-non-private-member-variables-in-classes): filled by the back-end's constructors
    std::string key_;
    std::string algObjId_;
    std::string algParams_;
    // NOLINTEND(cppcoreguidelines-non-private-member-variables-in-classes)
};

} // namespace orvik::plugin::crypto
