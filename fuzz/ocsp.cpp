// Answers of a stranger about a certificate's status: as they are, and signed again by the authority, by its responder
// and by another key. Built with libFuzzer, and replayed by a test.

#include "chains/ocsp.hpp"
#include "authority.hpp"
#include "ocsp_maker.hpp"
#include "require.hpp"

#include <openssl/ocsp.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed);
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

using klunortredi::csp::ByteView;
using klunortredi::csp::OcspAnswer;
using klunortredi::csp::OcspRequest;
using Nonce = OcspRequest::Nonce;
using Response = std::unique_ptr<OCSP_RESPONSE, fuzz::ossl::Deleter<OCSP_RESPONSE_free>>;
using Basic = std::unique_ptr<OCSP_BASICRESP, fuzz::ossl::Deleter<OCSP_BASICRESP_free>>;
using Crls = std::vector<std::shared_ptr<X509_CRL>>;

/// Who signs: OpenSSL signs with the key of a certificate only.
struct Signer {
    X509* certificate;
    EVP_PKEY* key;
};

Signer issuer() {
    return {fuzz::authority().root.get(), fuzz::authority().key.get()};
}

Signer responder() {
    return {fuzz::authority().responder.get(), fuzz::authority().keyOfResponder.get()};
}

/// Has the authority's name, and another key.
Signer stranger() {
    static const auto* const key = new fuzz::ossl::Pkey(fuzz::fixedKey('S'));
    static const auto* const certificate =
        new fuzz::ossl::X509Ptr(fuzz::authority().make("root", fuzz::rootSerial, key->get(), {}));
    return {certificate->get(), key->get()};
}

/// The answer with a signature of the key; empty when its content does not decode.
fuzz::Bytes signedBy(ByteView octets, const Signer& signer) {
    const fuzz::ossl::ErrorMark mark;
    const auto response = fuzz::ossl::fromDer<Response>(d2i_OCSP_RESPONSE, octets);
    const Basic basic(response ? OCSP_response_get1_basic(response.get()) : nullptr);
    const fuzz::ossl::MdCtx context(EVP_MD_CTX_new());
    if (!basic || EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, signer.key) != 1 ||
        OCSP_basic_sign_ctx(basic.get(), signer.certificate, context.get(), nullptr, OCSP_NOCERTS) != 1) {
        return {};
    }
    const Response again(OCSP_response_create(OCSP_RESPONSE_STATUS_SUCCESSFUL, basic.get()));
    return fuzz::ossl::toDer(i2d_OCSP_RESPONSE, again.get());
}

/// Whether a certificate of the responder is among those of the answer; that of an earlier run, kept in the corpus, has
/// other dates.
bool bringsResponder(ByteView answer) {
    const fuzz::ossl::ErrorMark mark;
    const auto response = fuzz::ossl::fromDer<Response>(d2i_OCSP_RESPONSE, answer);
    const Basic basic(OCSP_response_get1_basic(response.get()));
    const STACK_OF(X509)* const brought = OCSP_resp_get0_certs(basic.get());
    for (int i = 0; i < sk_X509_num(brought); ++i) {
        const EVP_PKEY* const key = X509_get0_pubkey(sk_X509_value(brought, i));
        if (key != nullptr && EVP_PKEY_eq(key, fuzz::authority().keyOfResponder.get()) == 1) {
            return true;
        }
    }
    return false;
}

/// A CRL of the authority that revokes its responder.
const Crls& revokedResponder() {
    static const auto* const made = [] {
        const fuzz::Authority& authority = fuzz::authority();
        const std::shared_ptr<X509_CRL> crl(X509_CRL_new(), X509_CRL_free);
        X509_CRL_set_version(crl.get(), X509_CRL_VERSION_2);
        X509_CRL_set_issuer_name(crl.get(), X509_get_subject_name(authority.root.get()));
        X509_CRL_set1_lastUpdate(crl.get(), X509_get0_notBefore(authority.root.get()));
        X509_REVOKED* const entry = X509_REVOKED_new();
        X509_REVOKED_set_serialNumber(entry, X509_get_serialNumber(authority.responder.get()));
        X509_REVOKED_set_revocationDate(entry, X509_getm_notBefore(authority.responder.get()));
        X509_CRL_add0_revoked(crl.get(), entry);
        X509_CRL_sign(crl.get(), authority.key.get(), EVP_sha256());
        return new Crls{crl};
    }();
    return *made;
}

void checkContent(const OcspAnswer& read) {
    const auto now = std::time(nullptr);
    require(read.status != OcspAnswer::Status::Good || statusAt(read, now) != OcspAnswer::Status::Revoked,
            "good news do not revoke");
    require(read.status != OcspAnswer::Status::Revoked || statusAt(read, now) != OcspAnswer::Status::Good,
            "a revoked certificate is never good");
}

/// The content with the responder's signature.
void checkResponder(const OcspRequest& request, ByteView answer) {
    const fuzz::Bytes responded = signedBy(answer, responder());
    const auto read = request.read(responded, Nonce::Any, {});
    if (read) {
        require(bringsResponder(responded), "a responder is believed with its certificate only");
        require(!request.read(responded, Nonce::Any, revokedResponder()), "a revoked responder is not believed");
        checkContent(*read);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Authority& authority = fuzz::authority();
    const ByteView answer(data, size);
    const OcspRequest request(authority.leaf.get(), authority.root.get());
    require(!request.read(answer, Nonce::Any, {}), "an answer without a signature of the authority is not believed");
    const fuzz::Bytes forged = signedBy(answer, stranger());
    require(!request.read(forged, Nonce::Any, {}), "an answer with another signature is not believed");
    if (const auto read = request.read(signedBy(answer, issuer()), Nonce::Any, {})) {
        checkContent(*read);
    }
    checkResponder(request, answer);
    return 0;
}

#ifndef KLUNORTREDI_REPLAY // begins with answers about the certificate, signed by a stranger

namespace {

/// The answers of which others are made.
std::vector<fuzz::Bytes> makeSeeds() {
    const fuzz::Authority& authority = fuzz::authority();
    const pki::Entity signer{
        {}, fuzz::ossl::X509Ptr(X509_dup(authority.responder.get())), fuzz::fixedKey(fuzz::responderKey)};
    const pki::Entity root{{}, fuzz::ossl::X509Ptr(X509_dup(authority.root.get())), {}};
    const OcspRequest request(authority.leaf.get(), authority.root.get());
    const pki::WantedAnswer good{.issuer = &root, .signer = &signer, .withCertificate = true};
    std::vector<fuzz::Bytes> seeds;
    const auto add = [&](auto change) {
        pki::WantedAnswer wanted = good;
        change(wanted);
        seeds.push_back(signedBy(pki::answerTo(request.der(), wanted), stranger()));
    };
    add([](auto&) {});
    add([](auto& wanted) { wanted.withCertificate = false; });
    add([](auto& wanted) { wanted.status = V_OCSP_CERTSTATUS_REVOKED; });
    add([](auto& wanted) {
        wanted.status = V_OCSP_CERTSTATUS_REVOKED, wanted.reason = OCSP_REVOKED_STATUS_KEYCOMPROMISE;
    });
    add([](auto& wanted) { wanted.status = V_OCSP_CERTSTATUS_UNKNOWN; });
    add([](auto& wanted) { wanted.nextUpdate = 0; });
    add([](auto& wanted) { wanted.otherNonce = true; });
    add([](auto& wanted) { wanted.otherSerial = true; });
    add([](auto& wanted) { wanted.twice = true; });
    add([](auto& wanted) { wanted.alsoRevokedUnder = EVP_sha256(); });
    add([](auto& wanted) { wanted.criticalExtension = true; });
    seeds.push_back(pki::refusal(OCSP_RESPONSE_STATUS_TRYLATER));
    for (const Signer& believed : {issuer(), responder()}) {
        require(request.read(signedBy(seeds.front(), believed), Nonce::Any, {}).has_value(),
                "a right answer is believed");
    }
    return seeds;
}

} // namespace

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned int seed) {
    static const auto* const seeds = new std::vector<fuzz::Bytes>(makeSeeds());
    constexpr std::size_t smallest = 32; // of anything that is worth changing
    if (size >= smallest) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    const fuzz::Bytes& chosen = (*seeds)[seed % seeds->size()];
    const std::size_t taken = std::min(chosen.size(), maxSize);
    std::memcpy(data, chosen.data(), taken);
    return taken;
}
#endif
