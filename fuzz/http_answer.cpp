// Answers of the servers that a certificate names: CRLs, OCSP answers and certificates of issuers, as they are and
// signed again by the right authority. The whole chain engine takes them from an HTTP server of this process. Whatever
// it concludes must follow from a signature of the authority. Built with libFuzzer, and replayed by a test.
//
// The first octet of an input chooses what it is an answer to, and whether it is signed again.

#include "capi/constants.hpp"
#include "carried_store.hpp"
#include "exports/export.hpp"
#include "require.hpp"
#include "support/servers/authority.hpp"

#include <openssl/ocsp.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

using klunortredi::csp::Bytes;
namespace api = klunortredi::csp::exports;
using test_servers::Authority;
using test_servers::HttpServer;
using test_servers::Identity;
using test_servers::KeyKind;
using test_servers::Owned;

using Crl = Owned<X509_CRL, X509_CRL_free>;
using Response = Owned<OCSP_RESPONSE, OCSP_RESPONSE_free>;
using Basic = Owned<OCSP_BASICRESP, OCSP_BASICRESP_free>;
using CertId = Owned<OCSP_CERTID, OCSP_CERTID_free>;

enum class Answer : std::uint8_t { crl, ocsp, issuer };
constexpr std::array paths{"/crl", "/ocsp", "/issuer"};
constexpr long leafSerial = 7;
constexpr std::chrono::seconds longest{5};

Bytes bytes(const std::string& octets) {
    return {octets.begin(), octets.end()};
}

/// An authority, and for each kind of answer a certificate that names the server for it. The server answers with
/// `body`.
class Scene {
public:
    Scene() : server_([this](const test_servers::Request&) { return answer(); }) {
        ::setenv("KLUNORTREDI_PRIVATE_ADDRESSES", "127.0.0.1", 1);
        ::unsetenv("XDG_CACHE_HOME"); // no cache: each input is a download
        ::unsetenv("HOME");
        const std::array<std::pair<int, std::string>, 3> places{
            std::pair{NID_crl_distribution_points, "URI:" + server_.url(paths[0])},
            std::pair{NID_info_access, "OCSP;URI:" + server_.url(paths[1])},
            std::pair{NID_info_access, "caIssuers;URI:" + server_.url(paths[2])}};
        const auto key = test_servers::makeKey(KeyKind::ec);
        for (const auto& place : places) {
            leaves_.push_back(test_servers::makeCertificate(
                {"leaf", leafSerial, -1, 365, {{NID_basic_constraints, "critical,CA:FALSE"}, place}}, key,
                &authority.issuer(), KeyKind::ec));
        }
    }

    [[nodiscard]] X509* leaf(Answer kind) const { return leaves_[static_cast<std::size_t>(kind)].get(); }

    /// Error bits of the certificate's chain when the server answers so.
    DWORD errors(Answer kind, const std::string& body) {
        {
            const std::lock_guard lock(mutex_);
            body_ = body;
        }
        const Bytes der = bytes(test_servers::toDer(leaves_[static_cast<std::size_t>(kind)]));
        const std::vector<Bytes> issuers =
            kind == Answer::issuer ? std::vector<Bytes>{}
                                   : std::vector<Bytes>{bytes(test_servers::toDer(authority.issuer().certificate))};
        void* const store = openCarriedStore(issuers, {});
        void* const anchors = openCarriedStore({bytes(test_servers::toDer(authority.root().certificate))}, {});
        const PCCERT_CONTEXT leaf =
            api::CertCreateCertificateContext(capi::X509_AND_PKCS_7, der.data(), static_cast<DWORD>(der.size()));
        CERT_CHAIN_PARA parameters{};
        parameters.cbSize = sizeof parameters;
        PCCERT_CHAIN_CONTEXT chain = nullptr;
        const DWORD check = kind == Answer::issuer ? 0 : capi::CERT_CHAIN_REVOCATION_CHECK_END_CERT;
        DWORD found = ~DWORD{0};
        if (api::CertGetCertificateChain(anchors, leaf, nullptr, store, &parameters, check, nullptr, &chain) != 0) {
            found = chain->TrustStatus.dwErrorStatus;
            api::CertFreeCertificateChain(chain);
        }
        api::CertFreeCertificateContext(leaf);
        api::CertCloseStore(anchors, 0);
        api::CertCloseStore(store, 0);
        return found;
    }

    Authority authority;

private:
    test_servers::Reply answer() {
        const std::lock_guard lock(mutex_);
        return {"application/octet-stream", body_};
    }

    std::mutex mutex_;
    std::string body_;
    std::vector<test_servers::Certificate> leaves_;
    HttpServer server_;
};

Scene& scene() {
    static auto* const made = new Scene; // keys must not outlive OpenSSL
    return *made;
}

template <class Pointer, class D2i>
Pointer decoded(const std::string& octets, D2i d2i) {
    const auto* next = reinterpret_cast<const unsigned char*>(octets.data());
    return Pointer(d2i(nullptr, &next, static_cast<long>(octets.size())));
}

bool concludes(DWORD errors) {
    return errors == 0 || (errors != ~DWORD{0} && (errors & capi::CERT_TRUST_IS_REVOKED) != 0);
}

std::string signedAgain(X509_CRL* crl) {
    const Identity& issuer = scene().authority.issuer();
    X509_CRL_set_issuer_name(crl, X509_get_subject_name(issuer.certificate.get()));
    const Owned<ASN1_TIME, ASN1_TIME_free> time(X509_gmtime_adj(nullptr, -3600));
    X509_CRL_set1_lastUpdate(crl, time.get());
    X509_gmtime_adj(time.get(), 3600);
    X509_CRL_set1_nextUpdate(crl, time.get());
    return X509_CRL_sign(crl, issuer.key.get(), EVP_sha256()) > 0 ? test_servers::toDer(crl, i2d_X509_CRL) : "";
}

void tryCrl(const std::string& octets, bool again) {
    auto crl = decoded<Crl>(octets, d2i_X509_CRL);
    const std::string sent = again && crl ? signedAgain(crl.get()) : octets;
    const DWORD errors = scene().errors(Answer::crl, sent);
    if (!concludes(errors) || sent.starts_with("-----BEGIN")) {
        return;
    }
    crl = decoded<Crl>(sent, d2i_X509_CRL);
    EVP_PKEY* const key = X509_get0_pubkey(scene().authority.issuer().certificate.get());
    require(crl && X509_CRL_verify(crl.get(), key) == 1, "a status comes from a CRL that the authority signed");
    X509_REVOKED* entry = nullptr;
    const bool listed = X509_CRL_get0_by_cert(crl.get(), &entry, scene().leaf(Answer::crl)) == 1;
    require(listed || errors == 0, "what is not listed is not revoked");
    require(!listed || errors != 0, "what is listed is not good");
}

/// The basic answer signed by the responder, with the certificate of the responder.
std::string signedAgain(OCSP_BASICRESP* basic) {
    const Identity& responder = scene().authority.responder({});
    if (OCSP_basic_sign(basic, responder.certificate.get(), responder.key.get(), EVP_sha256(), nullptr, 0) != 1) {
        return {};
    }
    const Response response(OCSP_response_create(OCSP_RESPONSE_STATUS_SUCCESSFUL, basic));
    return response ? test_servers::toDer(response.get(), i2d_OCSP_RESPONSE) : "";
}

Basic basicOf(const std::string& octets) {
    const auto response = decoded<Response>(octets, d2i_OCSP_RESPONSE);
    return Basic(response ? OCSP_response_get1_basic(response.get()) : nullptr);
}

void tryOcsp(const std::string& octets, bool again) {
    Basic basic = basicOf(octets);
    const std::string sent = again && basic ? signedAgain(basic.get()) : octets;
    const DWORD errors = scene().errors(Answer::ocsp, sent);
    if (!concludes(errors)) {
        return;
    }
    basic = basicOf(sent);
    const auto signedBy = [&](const Identity& identity) {
        return ASN1_item_verify(ASN1_ITEM_rptr(OCSP_RESPDATA), OCSP_resp_get0_tbs_sigalg(basic.get()),
                                OCSP_resp_get0_signature(basic.get()), OCSP_resp_get0_respdata(basic.get()),
                                X509_get0_pubkey(identity.certificate.get())) == 1;
    };
    const bool isSigned = basic && (signedBy(scene().authority.responder({})) || signedBy(scene().authority.issuer()));
    require(isSigned, "a status comes from an answer that the authority's responder signed");
    std::array<bool, 3> said{}; // by OpenSSL's numbers of statuses, of all entries for the certificate
    for (int i = 0; i < OCSP_resp_count(basic.get()); ++i) {
        OCSP_SINGLERESP* const single = OCSP_resp_get0(basic.get(), i);
        ASN1_INTEGER* serial = nullptr;
        OCSP_id_get0_info(nullptr, nullptr, nullptr, &serial,
                          const_cast<OCSP_CERTID*>(OCSP_SINGLERESP_get0_id(single)));
        const int status = OCSP_single_get0_status(single, nullptr, nullptr, nullptr, nullptr);
        if (ASN1_INTEGER_get(serial) == leafSerial && status >= 0 && status < 3) {
            said[static_cast<std::size_t>(status)] = true;
        }
    }
    require(said[errors == 0 ? V_OCSP_CERTSTATUS_GOOD : V_OCSP_CERTSTATUS_REVOKED], "the status is the answer's");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const auto start = std::chrono::steady_clock::now();
    const std::string octets(data + 1, data + size);
    const bool again = data[0] >= 3;
    switch (static_cast<Answer>(data[0] % 3)) {
    case Answer::crl:
        tryCrl(octets, again);
        break;
    case Answer::ocsp:
        tryOcsp(octets, again);
        break;
    case Answer::issuer:
        scene().errors(Answer::issuer, octets);
        break;
    }
    require(std::chrono::steady_clock::now() - start < longest, "judged within the time");
    return 0;
}

namespace {

/// A genuine answer, with its first octet.
std::string genuine(unsigned seed) {
    constexpr std::array crlWords{"", "revoked", "expired", "other-issuer", "pem"};
    constexpr std::array ocspWords{"",
                                   "revoked",
                                   "unknown",
                                   "expired",
                                   "other-certificate",
                                   "unauthorised",
                                   "no-responder",
                                   "no-next-update",
                                   "try-later"};
    auto& authority = scene().authority;
    const bool again = (seed & 1U) != 0;
    const unsigned choice = seed / 8;
    const auto kind = static_cast<Answer>((seed / 2) % 3);
    std::string octets;
    if (kind == Answer::crl) {
        octets = authority.crl({crlWords[choice % crlWords.size()]});
    } else if (kind == Answer::ocsp) {
        const Owned<OCSP_REQUEST, OCSP_REQUEST_free> request(OCSP_REQUEST_new());
        OCSP_request_add0_id(request.get(),
                             OCSP_cert_to_id(EVP_sha1(), scene().leaf(kind), authority.issuer().certificate.get()));
        octets = test_servers::ocspAnswer(authority, test_servers::toDer(request.get(), i2d_OCSP_REQUEST),
                                          {ocspWords[choice % ocspWords.size()]});
    } else {
        const auto& issuer = authority.issuer().certificate;
        octets = choice % 2 == 0 ? test_servers::toDer(issuer)
                                 : test_servers::certificatesOnly({issuer, authority.root().certificate});
    }
    return std::string(1, static_cast<char>(static_cast<int>(kind) + (again ? 3 : 0))) + octets;
}

} // namespace

#ifdef KLUNORTREDI_REPLAY
std::string genuineHttpAnswer(unsigned seed);

std::string genuineHttpAnswer(unsigned seed) {
    return genuine(seed);
}
#else
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed) {
    constexpr std::size_t smallest = 32; // of anything that is worth changing
    if (size >= smallest) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    const std::string answer = genuine(seed);
    const std::size_t taken = std::min(answer.size(), maxSize);
    std::memcpy(data, answer.data(), taken);
    return taken;
}
#endif
