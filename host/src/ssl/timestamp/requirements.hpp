#pragma once

#include "orvik/plugin/crypto/timestamp_tools.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

namespace orvik::plugin::ssl::internal {

/// The installed tools. Throws CryptoException algorithmUnsupported when there are none.
boost::shared_ptr<const crypto::cadest::TimestampTools> requireTools();

/// Throws ApplicationException emptyInput with the message unless `present`.
void requireInput(bool present, const char* message);

} // namespace orvik::plugin::ssl::internal
