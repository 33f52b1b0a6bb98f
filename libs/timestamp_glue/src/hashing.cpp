#include "hashing.hpp"

#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/provider.hpp"
#include "crypto/wincrypt/tools_timestamp.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"

#include <boost/smart_ptr/make_shared.hpp>

namespace orvik::plugin::timestamp_glue {

using crypto::exception::CryptoException;

boost::shared_ptr<crypto::IProvider> providerFor(const std::string& algorithmOid) {
    for (const auto& [type, name] : wincrypt::EnumProvidersEx()) {
        auto provider = boost::make_shared<wincrypt::Provider>(static_cast<unsigned long>(type), name);
        if (provider->hasAlgorithm(algorithmOid)) {
            return provider;
        }
    }
    exception::raise(CryptoException(CryptoException::Code::algorithmUnsupported)
                         << exception::Message_("no provider offers the digest " + algorithmOid),
                     {"hashing", "providerFor"});
}

std::string hashOf(const std::string& digestOid, boost::string_view octets) {
    const wincrypt::HCRYPTPROV context(*providerFor(digestOid), nullptr);
    return wincrypt::tools::hash(context, digestOid, octets);
}

} // namespace orvik::plugin::timestamp_glue
