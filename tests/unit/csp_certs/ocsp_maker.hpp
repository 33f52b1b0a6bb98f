#pragma once

/// OCSP answers, right ones and others.

#include "pki.hpp"

#include <string>

namespace pki {

struct WantedAnswer {
    const Entity* issuer = nullptr; ///< of the certificate asked about
    const Entity* signer = nullptr; ///< null: the issuer
    bool withCertificate = false;   ///< the signer's certificate is in the answer
    int status = 0;                 ///< V_OCSP_CERTSTATUS_...
    std::time_t revoked = std::time(nullptr) - 120;
    int reason = -1;
    std::time_t thisUpdate = std::time(nullptr) - 60;
    std::time_t nextUpdate = std::time(nullptr) + 3600; ///< 0: none
    bool otherNonce = false;
    bool otherSerial = false;
    bool twice = false; ///< two answers about the certificate
    /// Digest of a second identifier of the certificate, whose status is then "revoked"; null: there is none.
    const EVP_MD* alsoRevokedUnder = nullptr;
    bool criticalExtension = false; ///< one that nobody knows
    const EVP_MD* digest = nullptr; ///< null: SHA-256
};

/// The answer to a request in DER, which may be about any certificate of the issuer. Empty when the request is not one.
csp::Bytes answerTo(csp::ByteView request, const WantedAnswer& wanted);
/// An answer without content: OCSP_RESPONSE_STATUS_...
csp::Bytes refusal(int status);

} // namespace pki
