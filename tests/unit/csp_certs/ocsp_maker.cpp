#include "ocsp_maker.hpp"

#include "x509/x509_der.hpp"

#include <openssl/ocsp.h>

namespace pki {

namespace {

using csp::ossl::Deleter;
using Request = std::unique_ptr<OCSP_REQUEST, Deleter<OCSP_REQUEST_free>>;
using Basic = std::unique_ptr<OCSP_BASICRESP, Deleter<OCSP_BASICRESP_free>>;
using Response = std::unique_ptr<OCSP_RESPONSE, Deleter<OCSP_RESPONSE_free>>;
using Time = std::unique_ptr<ASN1_TIME, Deleter<ASN1_TIME_free>>;
using Id = std::unique_ptr<OCSP_CERTID, Deleter<OCSP_CERTID_free>>;

Time timeAt(std::time_t seconds) {
    return Time(seconds == 0 ? nullptr : ASN1_TIME_set(nullptr, seconds));
}

void addStatus(OCSP_BASICRESP* basic, OCSP_CERTID* id, const WantedAnswer& wanted) {
    const Time revoked = timeAt(wanted.status == V_OCSP_CERTSTATUS_REVOKED ? wanted.revoked : 0);
    OCSP_SINGLERESP* const single =
        OCSP_basic_add1_status(basic, id, wanted.status, wanted.reason, revoked.get(), timeAt(wanted.thisUpdate).get(),
                               timeAt(wanted.nextUpdate).get());
    if (wanted.criticalExtension) {
        const csp::ossl::Asn1Object oid(OBJ_txt2obj("1.2.3.4.5", 1));
        const csp::ossl::OctetString value(ASN1_OCTET_STRING_new());
        ASN1_OCTET_STRING_set(value.get(), reinterpret_cast<const unsigned char*>("\x05\x00"), 2);
        X509_EXTENSION* const extension = X509_EXTENSION_create_by_OBJ(nullptr, oid.get(), 1, value.get());
        OCSP_SINGLERESP_add_ext(single, extension, -1);
        X509_EXTENSION_free(extension);
    }
}

} // namespace

csp::Bytes answerTo(csp::ByteView request, const WantedAnswer& wanted) {
    const auto asked = csp::ossl::fromDer<Request>(d2i_OCSP_REQUEST, request);
    if (!asked || OCSP_request_onereq_count(asked.get()) != 1) {
        return {};
    }
    const Id id(OCSP_CERTID_dup(OCSP_onereq_get0_id(OCSP_request_onereq_get0(asked.get(), 0))));
    if (wanted.otherSerial) {
        ASN1_INTEGER* serial = nullptr;
        OCSP_id_get0_info(nullptr, nullptr, nullptr, &serial, id.get());
        ASN1_INTEGER_set(serial, ASN1_INTEGER_get(serial) + 1);
    }
    const Basic basic(OCSP_BASICRESP_new());
    addStatus(basic.get(), id.get(), wanted);
    if (wanted.twice) {
        addStatus(basic.get(), id.get(), wanted);
    }
    if (wanted.alsoRevokedUnder != nullptr) {
        ASN1_INTEGER* serial = nullptr;
        OCSP_id_get0_info(nullptr, nullptr, nullptr, &serial, id.get());
        X509* const issuer = wanted.issuer->certificate.get();
        const Id second(OCSP_cert_id_new(wanted.alsoRevokedUnder, X509_get_subject_name(issuer),
                                         X509_get0_pubkey_bitstr(issuer), serial));
        WantedAnswer revoked = wanted;
        revoked.status = V_OCSP_CERTSTATUS_REVOKED;
        addStatus(basic.get(), second.get(), revoked);
    }
    if (wanted.otherNonce) {
        OCSP_basic_add1_nonce(basic.get(), nullptr, -1);
    } else {
        OCSP_copy_nonce(basic.get(), asked.get());
    }
    const Entity& signer = wanted.signer == nullptr ? *wanted.issuer : *wanted.signer;
    OCSP_basic_sign(basic.get(), signer.certificate.get(), signer.key.get(),
                    wanted.digest == nullptr ? EVP_sha256() : wanted.digest, nullptr,
                    wanted.withCertificate ? 0 : OCSP_NOCERTS);
    const Response response(OCSP_response_create(OCSP_RESPONSE_STATUS_SUCCESSFUL, basic.get()));
    return csp::ossl::toDer(i2d_OCSP_RESPONSE, response.get());
}

csp::Bytes refusal(int status) {
    const Response response(OCSP_response_create(status, nullptr));
    return csp::ossl::toDer(i2d_OCSP_RESPONSE, response.get());
}

} // namespace pki
