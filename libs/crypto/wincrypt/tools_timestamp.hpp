#pragma once

/// Time-stamps (RFC 3161) on CMS signatures: the request for a signature, the checks of the authority's response, and
/// the token as an unsigned attribute of the signature (id-aa-signatureTimeStampToken, RFC 3161, appendix A).
///
/// The exchange with the authority, the nonce and its comparison, the authority's key usage and its chain are the
/// caller's matter. All octets are DER or BER as RFC 5652 and RFC 3161 have them. Failures of the service are
/// SystemException. `provider` stays the caller's.

#include "capi/types.h"
#include "crypto/wincrypt/handles.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>
#include <boost/utility/string_view.hpp>

#include <string>

namespace orvik::plugin::wincrypt::tools {

/// A TimeStampResp (RFC 3161, 2.4.2), decoded. Nothing of it is checked yet.
struct TspResponse {
    /// What the token says.
    struct Content {
        std::string token;             ///< the whole ContentInfo, a CMS SignedData
        std::string certificate;       ///< DER of the first certificate in the token, taken as the authority's
        std::string messageImprint;    ///< hash value of what was stamped
        boost::posix_time::ptime time; ///< genTime, UTC, whole seconds
    };
    unsigned int status = 0;          ///< PKIStatus
    boost::optional<Content> content; ///< present when the response carries a token
};

/// DER TimeStampReq over the signature value of the first signer of a CMS signature, by that signer's own hash
/// algorithm. It asks for the authority's certificate and for no policy. `nonce` goes in as it is, least significant
/// octet first; `flags` are those of CryptMsgOpenToDecode (CMSG_DETACHED_FLAG).
ORVIK_EXPORT std::string makeTspRequest(const HCRYPTPROV& provider, boost::string_view signature,
                                        boost::string_view nonce, unsigned int flags);

/// Decodes a response, and the token in it. A status that refuses is not an error here.
ORVIK_EXPORT TspResponse parseTspResponse(const HCRYPTPROV& provider, boost::string_view response);

/// Fills `content` from a token.
ORVIK_EXPORT void parseTspContent(TspResponse::Content& content, const HCRYPTPROV& provider,
                                  const CRYPTOAPI_BLOB& token);

/// Returns when the response grants the request (status 0 or 1) with a token for `imprint`. Throws
/// ApplicationException timestampRefused for another status, timestampMissing without a token, and what
/// validateTspContent throws.
ORVIK_EXPORT void validateTspResponse(const TspResponse& response, const HCRYPTPROV& provider,
                                      boost::string_view imprint);

/// Returns when the token is for `imprint` (octet for octet) and the certificate in `content` verifies its signature.
/// Throws ApplicationException timestampInvalid. Says nothing of the certificate itself: neither its chain nor that it
/// may be used for time-stamps is examined.
ORVIK_EXPORT void validateTspContent(const TspResponse::Content& content, const HCRYPTPROV& provider,
                                     boost::string_view imprint);

/// The signature with the token as an unsigned attribute of its first signer. The token is not examined.
ORVIK_EXPORT std::string addTimestampToSignature(const HCRYPTPROV& provider, boost::string_view signature,
                                                 boost::string_view token);

/// Hash of `data` in the provider's context, in the service's own byte order. Throws CryptoException noProvider for an
/// empty `provider`.
ORVIK_EXPORT std::string hash(const HCRYPTPROV& provider, const std::string& hashOid, boost::string_view data);

} // namespace orvik::plugin::wincrypt::tools
