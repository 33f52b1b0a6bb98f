#include "chains/crl_signer.hpp"

#include "chains/chain_sources.hpp"
#include "chains/element_signature.hpp"
#include "chains/weak_algorithm.hpp"
#include "core/error.hpp"
#include "core/warning.hpp"
#include "crypto/engine.hpp"
#include "x509/x509_der.hpp"

#include <openssl/x509v3.h>

#include <algorithm>

namespace klunortredi::csp {

namespace {

/// Certificates of the issuer's name that are looked at.
constexpr std::size_t mostIssuers = 64;

/// GOST keys decode only with the engine there; CRLs of other keys are checked without it.
void loadEngine() {
    try {
        gostEngine();
    } catch (const ApiError& error) {
        warn("the GOST engine cannot be loaded (" + std::to_string(error.code()) + ")");
    }
}

} // namespace

std::optional<Bytes> crlSignerKey(ByteView der) {
    const ossl::ErrorMark mark;
    loadEngine();
    const auto crl = ossl::fromDer<ossl::X509CrlPtr>(d2i_X509_CRL, der);
    if (!crl || hasBrokenSignature(crl.get())) {
        return std::nullopt;
    }
    ChainSources sources(nullptr, nullptr);
    const auto issuers = sources.named(X509_CRL_get_issuer(crl.get()), mostIssuers);
    const auto signer = std::ranges::find_if(issuers, [&](const Candidate* issuer) {
        X509* const certificate = issuer->x509.get();
        return (X509_get_key_usage(certificate) & KU_CRL_SIGN) != 0 && verifiesSignature(crl.get(), certificate);
    });
    return signer == issuers.end()
               ? std::nullopt
               : std::optional(ossl::toDer(i2d_X509_PUBKEY, X509_get_X509_PUBKEY((*signer)->x509.get())));
}

} // namespace klunortredi::csp
