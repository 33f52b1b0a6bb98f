#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <iosfwd>

namespace orvik::plugin::crypto {
class ICertificate;
}

namespace orvik::plugin::wincrypt::tools {

/// Checks the first signer of a CMS SignedData against its certificate, which the message must carry; `content` is the
/// content of a detached signature. Memory stays flat: content is hashed as it passes and kept nowhere.
///
/// Never throws. After false, GetLastErrorEx() tells why: the service's code of the step that failed, or
/// CRYPT_E_NOT_FOUND when the message carries no certificate of its signer.
ORVIK_EXPORT bool verify(std::istream& signature, const boost::optional<std::istream&>& content);

/// The certificate of the first signer of an open message, from those that the message carries; null when it is not
/// among them. Throws SystemException.
ORVIK_EXPORT boost::shared_ptr<crypto::ICertificate> certificate(void* hMsg);

} // namespace orvik::plugin::wincrypt::tools
