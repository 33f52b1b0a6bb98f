// Answers of a stranger about a certificate's status: as they are, and signed again by the authority and by another
// key. Built with libFuzzer, and replayed by a test.

#include "chains/ocsp.hpp"
#include "authority.hpp"
#include "require.hpp"

#include <openssl/ocsp.h>

namespace {

using klunortredi::csp::ByteView;
using klunortredi::csp::OcspAnswer;
using klunortredi::csp::OcspRequest;
using Nonce = OcspRequest::Nonce;
using Response = std::unique_ptr<OCSP_RESPONSE, fuzz::ossl::Deleter<OCSP_RESPONSE_free>>;
using Basic = std::unique_ptr<OCSP_BASICRESP, fuzz::ossl::Deleter<OCSP_BASICRESP_free>>;

EVP_PKEY* strangersKey() {
    static EVP_PKEY* const key = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256");
    return key;
}

/// The answer with a signature of the key; empty when its content does not decode.
fuzz::Bytes signedBy(ByteView octets, EVP_PKEY* key) {
    const fuzz::ossl::ErrorMark mark;
    const auto response = fuzz::ossl::fromDer<Response>(d2i_OCSP_RESPONSE, octets);
    const Basic basic(response ? OCSP_response_get1_basic(response.get()) : nullptr);
    const fuzz::ossl::MdCtx context(EVP_MD_CTX_new());
    if (!basic || EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
        OCSP_basic_sign_ctx(basic.get(), fuzz::authority().root.get(), context.get(), nullptr, OCSP_NOCERTS) != 1) {
        return {};
    }
    const Response again(OCSP_response_create(OCSP_RESPONSE_STATUS_SUCCESSFUL, basic.get()));
    return fuzz::ossl::toDer(i2d_OCSP_RESPONSE, again.get());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::Authority& authority = fuzz::authority();
    const ByteView answer(data, size);
    const OcspRequest request(authority.leaf.get(), authority.root.get());
    require(!request.read(answer, Nonce::Any, {}), "an answer without a signature of the authority is not believed");
    const fuzz::Bytes forged = signedBy(answer, strangersKey());
    require(!request.read(forged, Nonce::Any, {}), "an answer with another signature is not believed");
    const auto read = request.read(signedBy(answer, authority.key.get()), Nonce::Any, {});
    if (read) {
        const auto now = std::time(nullptr);
        require(read->status != OcspAnswer::Status::Good || statusAt(*read, now) != OcspAnswer::Status::Revoked,
                "good news do not revoke");
        require(read->status != OcspAnswer::Status::Revoked || statusAt(*read, now) != OcspAnswer::Status::Good,
                "a revoked certificate is never good");
    }
    return 0;
}
