#include "work_factor.hpp"

#include "core/ossl.hpp"
#include "failure.hpp"

#include <openssl/asn1t.h>
#include <openssl/pkcs12.h>

#include <memory>

namespace klunortredi::admin {

namespace {

constexpr long mostIterations = 10'000'000;

using Pbes2 = std::unique_ptr<PBE2PARAM, csp::ossl::Deleter<PBE2PARAM_free>>;
using Pbkdf2 = std::unique_ptr<PBKDF2PARAM, csp::ossl::Deleter<PBKDF2PARAM_free>>;
using Pbes1 = std::unique_ptr<PBEPARAM, csp::ossl::Deleter<PBEPARAM_free>>;

template <class Parameters>
Parameters parametersOf(const X509_ALGOR* algorithm, const ASN1_ITEM* item) {
    return Parameters(static_cast<typename Parameters::pointer>(ASN1_TYPE_unpack_sequence(item, algorithm->parameter)));
}

int nidOf(const X509_ALGOR* algorithm) {
    return OBJ_obj2nid(algorithm->algorithm);
}

} // namespace

void checkIterations(long iterations, const std::string& message) {
    if (iterations < 1 || iterations > mostIterations) {
        throw cli::Failure(cli::ExitCode::input, message, "the file asks for an absurd number of iterations");
    }
}

const X509_ALGOR* encryptionOf(const X509_SIG* encrypted) {
    const X509_ALGOR* algorithm = nullptr;
    X509_SIG_get0(encrypted, &algorithm, nullptr);
    return algorithm;
}

void checkIterations(const X509_ALGOR* encryption, const std::string& message) {
    const csp::ossl::ErrorMark mark;
    if (nidOf(encryption) != NID_pbes2) {
        if (const auto parameters = parametersOf<Pbes1>(encryption, ASN1_ITEM_rptr(PBEPARAM))) {
            checkIterations(ASN1_INTEGER_get(parameters->iter), message);
        }
        return;
    }
    const auto scheme = parametersOf<Pbes2>(encryption, ASN1_ITEM_rptr(PBE2PARAM));
    if (!scheme || nidOf(scheme->keyfunc) != NID_id_pbkdf2) {
        return;
    }
    if (const auto parameters = parametersOf<Pbkdf2>(scheme->keyfunc, ASN1_ITEM_rptr(PBKDF2PARAM))) {
        checkIterations(ASN1_INTEGER_get(parameters->iter), message);
    }
}

} // namespace klunortredi::admin
