#include "chains/findings.hpp"

#include "capi/constants.hpp"
#include "chains/trust_status.hpp"
#include "core/error.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

bool isMoment(const ASN1_TIME* field, std::time_t time) {
    return field != nullptr && ASN1_TIME_cmp_time_t(field, time) == 0;
}

/// A CRL made after the time asked about revokes what it says was revoked by then, and nothing else.
bool revokedLater(X509_STORE_CTX* context, X509_CRL* crl, std::time_t time) {
    X509* const certificate = X509_STORE_CTX_get_current_cert(context);
    X509_REVOKED* entry = nullptr;
    if (crl == nullptr || certificate == nullptr || X509_CRL_get0_by_cert(crl, &entry, certificate) == 0) {
        return false;
    }
    return ASN1_TIME_cmp_time_t(X509_CRL_get0_lastUpdate(crl), time) == 1 &&
           ASN1_TIME_cmp_time_t(X509_REVOKED_get0_revocationDate(entry), time) == 1;
}

/// OpenSSL reports keys that do not decode and its limit on names times constraints by the same number.
bool isNameLimit(X509_STORE_CTX* context, int error) {
    const X509* const certificate = X509_STORE_CTX_get_current_cert(context);
    return error == X509_V_ERR_UNSPECIFIED && certificate != nullptr && X509_get0_pubkey(certificate) != nullptr;
}

} // namespace

bool isWithinLastSecond(X509_STORE_CTX* context, int error, std::time_t time) {
    if (error == X509_V_ERR_CERT_HAS_EXPIRED) {
        return isMoment(X509_get0_notAfter(X509_STORE_CTX_get_current_cert(context)), time);
    }
    const X509_CRL* const crl = X509_STORE_CTX_get0_current_crl(context);
    return error == X509_V_ERR_CRL_HAS_EXPIRED && crl != nullptr && isMoment(X509_CRL_get0_nextUpdate(crl), time);
}

void Findings::note(X509_STORE_CTX* context, X509_CRL* applied) {
    const int error = X509_STORE_CTX_get_error(context);
    if (isWithinLastSecond(context, error, time_) ||
        (error == X509_V_ERR_CERT_REVOKED && revokedLater(context, applied, time_))) {
        return;
    }
    note(isNameLimit(context, error) ? X509_V_ERR_UNSUPPORTED_NAME_SYNTAX : error,
         X509_STORE_CTX_get_error_depth(context));
}

void Findings::note(int error, int depth) {
    const TrustProblem* const problem = trustProblem(error);
    if (problem == nullptr) {
        fail(error == X509_V_ERR_OUT_OF_MEM ? capi::ERROR_NOT_ENOUGH_MEMORY : capi::NTE_FAIL);
    }
    const auto index = static_cast<std::size_t>(std::max(depth, 0));
    if (problem->unusableCrl) {
        unusableCrl_.insert(index);
    }
    if (problem->bits == capi::CERT_TRUST_IS_REVOKED && unusableCrl_.contains(index)) {
        return; // OpenSSL goes on with a CRL whose signature is wrong; what it says is worth nothing
    }
    if (problem->ofChain) {
        chain_ |= problem->bits;
        return;
    }
    if (elements_.size() <= index) {
        elements_.resize(index + 1);
    }
    elements_[index] |= problem->bits;
}

} // namespace klunortredi::csp
