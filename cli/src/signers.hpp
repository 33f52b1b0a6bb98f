#pragma once

/// Who signed a message: read from an open message after its first signer has been checked.

#include "certificates.hpp"

#include <boost/date_time/posix_time/ptime.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace klunortredi::cli {

struct Signer {
    CertificatePtr certificate; ///< null when neither the message nor the caller has it
    boost::posix_time::ptime signingTime;
    std::string digestAlgorithm; ///< OID
    bool timestamped = false;    ///< carries an RFC 3161 token
    std::uint32_t refusal = 0;   ///< the service's code when this signer's signature is not valid
};

/// Every signer of the message. The first is taken as checked already; the others are checked here. `outside` is the
/// signer's certificate when the message carries none. Throws SystemException.
std::vector<Signer> readSigners(void* message, const CertificatePtr& outside);

} // namespace klunortredi::cli
