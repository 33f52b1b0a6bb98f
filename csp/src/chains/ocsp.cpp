#include "chains/ocsp.hpp"

#include "chains/element_signature.hpp"
#include "chains/weak_algorithm.hpp"
#include "core/error.hpp"
#include "x509/x509_der.hpp"

#include <openssl/x509v3.h>

#include <algorithm>

namespace klunortredi::csp {

namespace {

using Response = std::unique_ptr<OCSP_RESPONSE, ossl::Deleter<OCSP_RESPONSE_free>>;
using BasicResponse = std::unique_ptr<OCSP_BASICRESP, ossl::Deleter<OCSP_BASICRESP_free>>;
using CertId = std::unique_ptr<OCSP_CERTID, ossl::Deleter<OCSP_CERTID_free>>;

/// Certificates of an answer that are looked at as its signer.
constexpr int mostSigners = 4;
/// Clocks of servers that are ahead of this machine's.
constexpr std::time_t clockSkew = 300;
/// Age at which an answer without nextUpdate is not good any more.
constexpr std::time_t longestWithoutNextUpdate = 86400;

template <class Object>
Object* orNoMemory(Object* object) {
    if (object == nullptr) {
        fail(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
    return object;
}

std::optional<std::time_t> timeOf(const ASN1_GENERALIZEDTIME* time) {
    std::tm parts{};
    return time == nullptr || ASN1_TIME_to_tm(time, &parts) == 0 ? std::nullopt : std::optional(timegm(&parts));
}

bool signs(OCSP_BASICRESP* answer, X509* signer) {
    EVP_PKEY* const key = X509_get0_pubkey(signer);
    const ASN1_OCTET_STRING* const signature = OCSP_resp_get0_signature(answer);
    const X509_ALGOR* const algorithm = OCSP_resp_get0_tbs_sigalg(answer);
    return key != nullptr && !isBrokenSignature(algorithm) && hasExactLength(signature, signer) &&
           ASN1_item_verify(ASN1_ITEM_rptr(OCSP_RESPDATA), algorithm, signature, OCSP_resp_get0_respdata(answer),
                            key) == 1;
}

bool isValidNow(const X509* certificate) {
    return X509_cmp_current_time(X509_get0_notBefore(certificate)) < 0 &&
           X509_cmp_current_time(X509_get0_notAfter(certificate)) > 0;
}

/// RFC 6960, 4.2.2.2: issued by the authority itself, for this use.
bool isResponderOf(X509* responder, X509* issuer, const std::vector<std::shared_ptr<X509_CRL>>& lists) {
    constexpr std::uint32_t mayRespond = XKU_OCSP_SIGN;
    X509_REVOKED* entry = nullptr;
    return (X509_get_extension_flags(responder) & (EXFLAG_XKUSAGE | EXFLAG_INVALID | EXFLAG_CRITICAL)) ==
               EXFLAG_XKUSAGE &&
           (X509_get_extended_key_usage(responder) & mayRespond) != 0 &&
           (X509_get_key_usage(responder) & (KU_DIGITAL_SIGNATURE | KU_NON_REPUDIATION)) != 0 &&
           isValidNow(responder) && !hasBrokenSignature(responder) && !hasBrokenKey(responder) &&
           X509_check_issued(issuer, responder) == X509_V_OK && verifiesSignature(responder, issuer) &&
           std::ranges::none_of(
               lists, [&](const auto& list) { return X509_CRL_get0_by_cert(list.get(), &entry, responder) != 0; });
}

const ASN1_INTEGER* serialOf(const OCSP_CERTID* id) {
    ASN1_INTEGER* serial = nullptr;
    OCSP_id_get0_info(nullptr, nullptr, nullptr, &serial, const_cast<OCSP_CERTID*>(id)); // NOLINT: no const variant
    return serial;
}

bool hasSerialOf(const OCSP_CERTID* id, const X509* certificate) {
    return ASN1_INTEGER_cmp(X509_get0_serialNumber(certificate), serialOf(id)) == 0;
}

/// Whether the signer is the issuer, or a responder of the issuer other than the certificate of `asked`: a key that is
/// revoked could say otherwise of itself.
bool isSignedFor(OCSP_BASICRESP* answer, const OCSP_CERTID* asked, X509* issuer,
                 const std::vector<std::shared_ptr<X509_CRL>>& lists) {
    if (signs(answer, issuer)) {
        return true;
    }
    const STACK_OF(X509)* const brought = OCSP_resp_get0_certs(answer);
    const int count = std::min(sk_X509_num(brought), mostSigners);
    for (int i = 0; i < count; ++i) {
        X509* const responder = sk_X509_value(brought, i);
        if (!hasSerialOf(asked, responder) && isResponderOf(responder, issuer, lists) && signs(answer, responder)) {
            return true;
        }
    }
    return false;
}

/// Whether a part of an answer is about the certificate of `asked`, or may be: the digest that names the issuer is for
/// the server to choose, and one that is not known here could stand for any issuer.
bool mayBeAbout(OCSP_SINGLERESP* single, const OCSP_CERTID* asked, X509* issuer) {
    auto* const named = const_cast<OCSP_CERTID*>(OCSP_SINGLERESP_get0_id(single)); // NOLINT: the getters take no const
    ASN1_OBJECT* algorithm = nullptr;
    ASN1_INTEGER* serial = nullptr;
    OCSP_id_get0_info(nullptr, &algorithm, nullptr, &serial, named);
    if (ASN1_INTEGER_cmp(serial, serialOf(asked)) != 0) {
        return false;
    }
    const EVP_MD* const digest = EVP_get_digestbyobj(algorithm);
    const CertId same(digest == nullptr ? nullptr
                                        : OCSP_cert_id_new(digest, X509_get_subject_name(issuer),
                                                           X509_get0_pubkey_bitstr(issuer), serial));
    return !same || OCSP_id_cmp(same.get(), named) == 0;
}

/// The part of an answer that is about the certificate of `asked`; null unless there is one, and no other is about it.
OCSP_SINGLERESP* onlyPartAbout(const OCSP_CERTID* asked, OCSP_BASICRESP* answer, X509* issuer) {
    OCSP_SINGLERESP* found = nullptr;
    for (int i = 0; i < OCSP_resp_count(answer); ++i) {
        OCSP_SINGLERESP* const single = OCSP_resp_get0(answer, i);
        if (!mayBeAbout(single, asked, issuer)) {
            continue;
        }
        if (found != nullptr || OCSP_id_cmp(OCSP_SINGLERESP_get0_id(single), asked) != 0) {
            return nullptr;
        }
        found = single;
    }
    return found;
}

bool hasCriticalExtension(OCSP_BASICRESP* answer, OCSP_SINGLERESP* single) {
    return OCSP_BASICRESP_get_ext_by_critical(answer, 1, -1) >= 0 ||
           OCSP_SINGLERESP_get_ext_by_critical(single, 1, -1) >= 0;
}

std::optional<OcspAnswer> contentOf(OCSP_SINGLERESP* single) {
    ASN1_GENERALIZEDTIME* revoked = nullptr;
    ASN1_GENERALIZEDTIME* from = nullptr;
    ASN1_GENERALIZEDTIME* until = nullptr;
    OcspAnswer answer;
    const int status = OCSP_single_get0_status(single, &answer.reason, &revoked, &from, &until);
    const auto thisUpdate = timeOf(from);
    answer.nextUpdate = timeOf(until);
    if (!thisUpdate || (until != nullptr && !answer.nextUpdate)) {
        return std::nullopt;
    }
    answer.thisUpdate = *thisUpdate;
    if (status == V_OCSP_CERTSTATUS_REVOKED) {
        answer.status = OcspAnswer::Status::Revoked;
        answer.revoked = timeOf(revoked).value_or(0); // since ever, where the time does not decode
    } else if (status == V_OCSP_CERTSTATUS_GOOD) {
        answer.status = OcspAnswer::Status::Good;
    }
    return answer;
}

} // namespace

OcspRequest::OcspRequest(X509* certificate, X509* issuer) : issuer_(issuer), request_(orNoMemory(OCSP_REQUEST_new())) {
    // SHA-1 names the issuer here; nothing depends on collisions (RFC 6960, 4.3 requires it of every server).
    CertId id(orNoMemory(OCSP_cert_to_id(EVP_sha1(), certificate, issuer)));
    orNoMemory(OCSP_request_add0_id(request_.get(), id.get()));
    id_ = id.release();
    if (OCSP_request_add1_nonce(request_.get(), nullptr, -1) != 1) {
        fail(capi::ERROR_NOT_ENOUGH_MEMORY);
    }
}

Bytes OcspRequest::der() const {
    return ossl::toDer(i2d_OCSP_REQUEST, request_.get());
}

Bytes OcspRequest::subject() const {
    return ossl::toDer(i2d_OCSP_CERTID, id_);
}

std::optional<OcspAnswer> OcspRequest::read(ByteView answer, Nonce nonce,
                                            const std::vector<std::shared_ptr<X509_CRL>>& lists) const {
    const ossl::ErrorMark mark;
    const auto response = ossl::fromDer<Response>(d2i_OCSP_RESPONSE, answer);
    if (!response || OCSP_response_status(response.get()) != OCSP_RESPONSE_STATUS_SUCCESSFUL) {
        return std::nullopt;
    }
    const BasicResponse basic(OCSP_response_get1_basic(response.get()));
    OCSP_SINGLERESP* const single = basic ? onlyPartAbout(id_, basic.get(), issuer_) : nullptr;
    constexpr int otherNonce = 0;
    if (single == nullptr || hasCriticalExtension(basic.get(), single) ||
        (nonce == Nonce::OfThisRequest && OCSP_check_nonce(request_.get(), basic.get()) == otherNonce) ||
        !isSignedFor(basic.get(), id_, issuer_, lists)) {
        return std::nullopt;
    }
    return contentOf(single);
}

OcspAnswer::Status statusAt(const OcspAnswer& answer, std::time_t time) {
    using Status = OcspAnswer::Status;
    if (answer.status == Status::Revoked) {
        return answer.revoked <= time ? Status::Revoked : Status::Unknown;
    }
    const std::time_t until = answer.nextUpdate.value_or(answer.thisUpdate + longestWithoutNextUpdate);
    const bool ofThatTime = answer.thisUpdate - clockSkew <= time && time <= until;
    return ofThatTime ? answer.status : Status::Unknown;
}

} // namespace klunortredi::csp
