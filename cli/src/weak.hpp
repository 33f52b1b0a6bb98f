#pragma once

/// What is weak about certificates and signatures, by the framework's one table.

#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/weak_algorithms.hpp"

#include "capi/types.h"

#include <boost/date_time/posix_time/ptime.hpp>

#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace klunortredi::cli {

using orvik::plugin::crypto::Weakness;

/// The digest that a signature algorithm uses: its own OID, which names the digest, or for RSASSA-PSS (RFC 8017) the
/// digest of its parameters. Empty when the parameters cannot be read.
std::string digestOidOf(const CRYPT_ALGORITHM_IDENTIFIER& signatureAlgorithm);

/// About the certificate's public key. A time that is not set counts as later than every date.
std::vector<Weakness> keyWeaknesses(const orvik::plugin::crypto::ICertificate& certificate,
                                    const boost::posix_time::ptime& time);
/// About the digest of the certificate's own signature. Of no meaning for a trust anchor, which is not trusted for its
/// signature.
std::vector<Weakness> signatureWeaknesses(const orvik::plugin::crypto::ICertificate& certificate,
                                          const boost::posix_time::ptime& time);

/// About a signature's digests (each an OID of a digest or of a signature algorithm that names one) and the signer's
/// key, each finding once. Of `certificate`, which may be null, only the key counts.
std::vector<Weakness> weaknessesOf(std::initializer_list<std::string_view> digests,
                                   const orvik::plugin::crypto::ICertificate* certificate);

/// "MD5 digest is broken: ...", of the first that is never valid; nothing when there is none.
std::optional<std::string> brokenReason(const std::vector<Weakness>& found);

/// "SHA-1 digest: collisions can be computed (since 2017-02-23)"
std::string describe(const Weakness& weakness);

} // namespace klunortredi::cli
