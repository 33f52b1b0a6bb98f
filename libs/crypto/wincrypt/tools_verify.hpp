#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/optional.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstddef>
#include <functional>
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

/// What a caller may want of a signature besides the verdict. Everything may be left empty.
struct VerifyHooks {
    /// The signer's certificate, for a message that does not carry it.
    boost::shared_ptr<crypto::ICertificate> certificate;
    /// Takes the content of an attached signature as it passes, before anything is known of its validity; false ends
    /// the check with a false verdict.
    std::function<bool(const unsigned char* data, std::size_t size)> content;
    /// Looks at the open message (an HCRYPTMSG, which stays the check's) once its first signer is found valid.
    std::function<void(void* hMsg)> inspect;
};

/// The same check. What a hook throws counts as a failed check, as everything else does.
ORVIK_EXPORT bool verify(std::istream& signature, const boost::optional<std::istream&>& content,
                         const VerifyHooks& hooks);

/// The certificate of the first signer of an open message, from those that the message carries; null when it is not
/// among them. Throws SystemException.
ORVIK_EXPORT boost::shared_ptr<crypto::ICertificate> certificate(void* hMsg);

} // namespace orvik::plugin::wincrypt::tools
