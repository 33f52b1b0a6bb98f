#pragma once

#include "capi/types.h"
#include "orvik/plugin/crypto/public_key.hpp"
#include "orvik/plugin/export.hpp"

namespace orvik::plugin::wincrypt {

/// A public key by value; the service decides whether two are equal.
class ORVIK_EXPORT PublicKey : public crypto::PublicKey {
public:
    /// Copies the parts of `info`; with null all three are empty.
    explicit PublicKey(_CERT_PUBLIC_KEY_INFO* info);
    ~PublicKey() override;

    /// Asks the service to compare both key infos; `other` may belong to any back-end. Throws CryptoException
    /// noProvider when no service is installed.
    bool operator==(const crypto::IPublicKey& other) const override;
};

} // namespace orvik::plugin::wincrypt
