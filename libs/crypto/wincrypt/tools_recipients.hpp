#pragma once

#include "capi/types.h"
#include "orvik/plugin/export.hpp"

#include <string>
#include <vector>

namespace orvik::plugin::crypto {
class ICertificate;
}

namespace orvik::plugin::wincrypt::tools {

/// How an enveloped message names one of its recipients (RFC 5652, 6.2): by issuer and serial number, or by the
/// subject key identifier of the certificate. All empty: in a way that is not for certificates (a password, a shared
/// key).
struct RecipientName {
    std::string issuer;        ///< DER Name
    std::string serialNumber;  ///< least significant octet first
    std::string keyIdentifier; ///< octets
};

/// From the CERT_INFO that CMSG_RECIPIENT_INFO_PARAM gives. Its pointers are followed; it stays the caller's.
ORVIK_EXPORT RecipientName recipientName(const CERT_INFO& info);

/// Whether the name means that certificate. A certificate without a context is never meant.
ORVIK_EXPORT bool isNamed(const RecipientName& name, const crypto::ICertificate& certificate);

/// The names of all recipients of an open message (an HCRYPTMSG), in the message's order. Throws SystemException: with
/// CRYPT_E_STREAM_MSG_NOT_READY while the service has not read so far.
ORVIK_EXPORT std::vector<RecipientName> recipients(void* hMsg);

} // namespace orvik::plugin::wincrypt::tools
