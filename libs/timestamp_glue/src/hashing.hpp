#pragma once

#include <boost/smart_ptr/shared_ptr.hpp>
#include <boost/utility/string_view.hpp>

#include <string>

namespace orvik::plugin::crypto {
class IProvider;
}

namespace orvik::plugin::timestamp_glue {

/// An installed provider that offers the algorithm. CryptoException algorithmUnsupported when none does.
boost::shared_ptr<crypto::IProvider> providerFor(const std::string& algorithmOid);

/// Hash of `octets`; CryptoException as above, SystemException.
std::string hashOf(const std::string& digestOid, boost::string_view octets);

} // namespace orvik::plugin::timestamp_glue
