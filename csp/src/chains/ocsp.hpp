#pragma once

/// Status requests and answers (RFC 6960, RFC 8954). No network here.

#include "core/bytes.hpp"
#include "core/ossl.hpp"

#include <openssl/ocsp.h>

#include <ctime>
#include <memory>
#include <optional>
#include <vector>

namespace klunortredi::csp {

/// What an answer with a valid signature says of one certificate.
struct OcspAnswer {
    enum class Status { Good, Revoked, Unknown };
    Status status = Status::Unknown;
    std::time_t revoked = 0; ///< since when
    int reason = -1;         ///< CRLReason; -1: none is given
    std::time_t thisUpdate = 0;
    std::optional<std::time_t> nextUpdate; ///< nothing: newer information is always available
};

/// A request about one certificate, with a nonce.
class OcspRequest {
public:
    /// ApiError(ERROR_NOT_ENOUGH_MEMORY).
    OcspRequest(X509* certificate, X509* issuer);

    [[nodiscard]] Bytes der() const;
    /// The CertID in DER: what requests about one certificate have in common.
    [[nodiscard]] Bytes subject() const;

    /// Whose nonce an answer may have.
    enum class Nonce {
        OfThisRequest, ///< or none
        Any,           ///< the answer was read with its own request before
    };

    /// Reads an answer. Nullopt unless it is a successful basic answer about the certificate, with a right nonce,
    /// signed by the issuer or by another certificate that the issuer issued for OCSP signing, that is valid now and
    /// that none of `lists` revokes. Signatures over MD2, MD4 and MD5 are not valid, and critical extensions make an
    /// answer unusable.
    [[nodiscard]] std::optional<OcspAnswer> read(ByteView answer, Nonce nonce,
                                                 const std::vector<std::shared_ptr<X509_CRL>>& lists) const;

private:
    using Request = std::unique_ptr<OCSP_REQUEST, ossl::Deleter<OCSP_REQUEST_free>>;

    X509* issuer_;
    Request request_;
    OCSP_CERTID* id_ = nullptr; ///< in `request_`
};

/// What an answer proves about the certificate's status at `time`, as asked for now: revoked, when it was by then;
/// good, when the answer is of that time. Unknown otherwise: an answer of a later time proves nothing else.
OcspAnswer::Status statusAt(const OcspAnswer& answer, std::time_t time);

} // namespace klunortredi::csp
