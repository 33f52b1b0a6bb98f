#include "requirements.hpp"

#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

namespace orvik::plugin::ssl::internal {

using crypto::cadest::TimestampTools;
using crypto::exception::CryptoException;
using plugin::exception::ApplicationException;
using plugin::exception::Message_;

boost::shared_ptr<const TimestampTools> requireTools() {
    auto tools = TimestampTools::installed();
    if (!tools) {
        plugin::exception::raise(CryptoException(CryptoException::Code::algorithmUnsupported)
                                     << Message_("the cryptographic back-end offers no time-stamps"),
                                 {"transformers", "finalizeImpl"});
    }
    return tools;
}

void requireInput(bool present, const char* message) {
    if (!present) {
        plugin::exception::raise(ApplicationException(ApplicationException::Code::emptyInput) << Message_(message),
                                 {"transformers", "finalizeImpl"});
    }
}

} // namespace orvik::plugin::ssl::internal
