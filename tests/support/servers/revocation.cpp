// CRLs (RFC 5280) and OCSP answers (RFC 6960).

#include "support/servers/authority.hpp"

#include <openssl/ocsp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <array>
#include <ctime>

namespace test_servers {

namespace {

constexpr long daySeconds = 86400;

struct Validity {
    long from = -60; ///< seconds from now
    long until = daySeconds;
};

Validity validity(const Words& words) {
    if (words.contains("expired")) {
        return {-10 * daySeconds, -daySeconds};
    }
    return words.contains("future") ? Validity{daySeconds, 10 * daySeconds} : Validity{};
}

using Time = Owned<ASN1_TIME, ASN1_TIME_free>;

Time inSeconds(long seconds) {
    return Time(X509_gmtime_adj(nullptr, seconds));
}

void addRevoked(X509_CRL* list, long serial) {
    X509_REVOKED* const entry = X509_REVOKED_new();
    const Owned<ASN1_INTEGER, ASN1_INTEGER_free> number(ASN1_INTEGER_new());
    ASN1_INTEGER_set(number.get(), serial);
    X509_REVOKED_set_serialNumber(entry, number.get());
    X509_REVOKED_set_revocationDate(entry, inSeconds(-60).get());
    require(X509_CRL_add0_revoked(list, entry) == 1, "CRL entry");
}

void addExtensions(X509_CRL* list, X509* issuer, long number) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, nullptr, nullptr, list, 0);
    const Owned<X509_EXTENSION, X509_EXTENSION_free> key(
        X509V3_EXT_nconf_nid(nullptr, &context, NID_authority_key_identifier, "keyid"));
    require(key && X509_CRL_add_ext(list, key.get(), -1) == 1, "CRL extension");
    const Owned<ASN1_INTEGER, ASN1_INTEGER_free> value(ASN1_INTEGER_new());
    ASN1_INTEGER_set(value.get(), number);
    require(X509_CRL_add1_ext_i2d(list, NID_crl_number, value.get(), 0, 0) == 1, "CRL number");
}

/// Every serial number that can have been issued by now.
std::set<long> all(Authority& authority) {
    std::set<long> serials;
    for (long serial = authority.nextSerial(); serial >= 100; --serial) {
        serials.insert(serial);
    }
    return serials;
}

using Response = Owned<OCSP_RESPONSE, OCSP_RESPONSE_free>;
using Basic = Owned<OCSP_BASICRESP, OCSP_BASICRESP_free>;
using Question = Owned<OCSP_REQUEST, OCSP_REQUEST_free>;

std::string failure(int status) {
    const Response response(OCSP_response_create(status, nullptr));
    return toDer(response.get(), i2d_OCSP_RESPONSE);
}

int statusOf(Authority& authority, OCSP_CERTID* id, const Words& words) {
    ASN1_INTEGER* serial = nullptr;
    OCSP_id_get0_info(nullptr, nullptr, nullptr, &serial, id);
    if (words.contains("unknown")) {
        return V_OCSP_CERTSTATUS_UNKNOWN;
    }
    const bool revoked = words.contains("revoked") || authority.revoked().contains(ASN1_INTEGER_get(serial));
    return revoked ? V_OCSP_CERTSTATUS_REVOKED : V_OCSP_CERTSTATUS_GOOD;
}

void addAnswers(Authority& authority, OCSP_BASICRESP* basic, OCSP_REQUEST* question, const Words& words) {
    const Validity times = validity(words);
    const Time from = inSeconds(times.from);
    const Time until = inSeconds(times.until);
    const Time revokedAt = inSeconds(-120);
    for (int i = 0; i < OCSP_request_onereq_count(question); ++i) {
        OCSP_CERTID* const id = OCSP_onereq_get0_id(OCSP_request_onereq_get0(question, i));
        const int status = statusOf(authority, id, words);
        if (words.contains("other-certificate")) {
            ASN1_INTEGER* serial = nullptr;
            OCSP_id_get0_info(nullptr, nullptr, nullptr, &serial, id);
            ASN1_INTEGER_set(serial, 4711);
        }
        require(OCSP_basic_add1_status(basic, id, status, OCSP_REVOKED_STATUS_KEYCOMPROMISE, revokedAt.get(),
                                       from.get(), words.contains("no-next-update") ? nullptr : until.get()) != nullptr,
                "OCSP status");
    }
}

} // namespace

std::string crlAnswer(Authority& authority, const Identity& issuer, const Words& words) {
    const Identity& signer = words.contains("other-issuer") ? authority.stranger() : issuer;
    const Owned<X509_CRL, X509_CRL_free> list(X509_CRL_new());
    X509_CRL_set_version(list.get(), X509_CRL_VERSION_2);
    X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(signer.certificate.get()));
    const Validity times = validity(words);
    X509_CRL_set1_lastUpdate(list.get(), inSeconds(times.from).get());
    X509_CRL_set1_nextUpdate(list.get(), inSeconds(times.until).get());
    for (const long serial : words.contains("revoked") ? all(authority) : authority.revoked()) {
        addRevoked(list.get(), serial);
    }
    addExtensions(list.get(), signer.certificate.get(), std::time(nullptr));
    require(X509_CRL_sort(list.get()) == 1, "CRL order");
    require(X509_CRL_sign(list.get(), signer.key.get(), digestOf(authority.kind())) > 0, "CRL signature");
    std::string encoded = toDer(list.get(), i2d_X509_CRL);
    if (words.contains("damaged")) {
        encoded.back() = static_cast<char>(encoded.back() ^ 1);
    }
    if (!words.contains("pem")) {
        return encoded;
    }
    const Owned<BIO, BIO_free_all> memory(BIO_new(BIO_s_mem()));
    require(PEM_write_bio_X509_CRL(memory.get(), list.get()) == 1, "PEM");
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

std::string ocspAnswer(Authority& authority, const std::string& request, const Words& words) {
    const auto* next = reinterpret_cast<const unsigned char*>(request.data());
    const Question question(d2i_OCSP_REQUEST(nullptr, &next, static_cast<long>(request.size())));
    if (!question || words.contains("malformed")) {
        return failure(OCSP_RESPONSE_STATUS_MALFORMEDREQUEST);
    }
    if (words.contains("try-later") || words.contains("internal-error")) {
        return failure(words.contains("try-later") ? OCSP_RESPONSE_STATUS_TRYLATER
                                                   : OCSP_RESPONSE_STATUS_INTERNALERROR);
    }
    const Basic basic(OCSP_BASICRESP_new());
    addAnswers(authority, basic.get(), question.get(), words);
    OCSP_copy_nonce(basic.get(), question.get());
    const Identity& responder = authority.responder(words);
    require(OCSP_basic_sign(basic.get(), responder.certificate.get(), responder.key.get(), digestOf(authority.kind()),
                            nullptr, words.contains("no-responder") ? OCSP_NOCERTS : 0) == 1,
            "OCSP signature");
    if (words.contains("damaged")) {
        auto* const value = const_cast<ASN1_OCTET_STRING*>(OCSP_resp_get0_signature(basic.get()));
        const_cast<unsigned char*>(ASN1_STRING_get0_data(value))[9] ^= 1U;
    }
    const Response response(OCSP_response_create(OCSP_RESPONSE_STATUS_SUCCESSFUL, basic.get()));
    return toDer(response.get(), i2d_OCSP_RESPONSE);
}

} // namespace test_servers
