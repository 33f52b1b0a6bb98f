#pragma once

#include "orvik/plugin/crypto/signature_factory.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/utility/string_view.hpp>

namespace orvik::plugin::wincrypt {

/// The handlers of one signature format: "attached" and "detached" (CMS SignedData, RFC 5652) or "xmldsig".
class ORVIK_EXPORT SignatureFactory : public crypto::SignatureFactory {
public:
    /// Throws CryptoException unknownFormat for any other name, spelled byte for byte.
    explicit SignatureFactory(boost::string_view format);
    SignatureFactory(const SignatureFactory&) = default;
    SignatureFactory& operator=(const SignatureFactory&) = default;
    ~SignatureFactory() override;
};

} // namespace orvik::plugin::wincrypt
