#include "work_factor.hpp"

#include "core/ossl.hpp"
#include "failure.hpp"

#include <openssl/asn1t.h>
#include <openssl/pkcs12.h>

#include <memory>

namespace klunortredi::admin {

namespace {

using Pbes2 = std::unique_ptr<PBE2PARAM, csp::ossl::Deleter<PBE2PARAM_free>>;
using Pbkdf2 = std::unique_ptr<PBKDF2PARAM, csp::ossl::Deleter<PBKDF2PARAM_free>>;
using Pbes1 = std::unique_ptr<PBEPARAM, csp::ossl::Deleter<PBEPARAM_free>>;
using Scrypt = std::unique_ptr<SCRYPT_PARAMS, csp::ossl::Deleter<SCRYPT_PARAMS_free>>;

template <class Parameters>
Parameters parametersOf(const X509_ALGOR* algorithm, const ASN1_ITEM* item) {
    return Parameters(static_cast<typename Parameters::pointer>(ASN1_TYPE_unpack_sequence(item, algorithm->parameter)));
}

int nidOf(const X509_ALGOR* algorithm) {
    return OBJ_obj2nid(algorithm->algorithm);
}

std::uint64_t product(std::uint64_t a, std::uint64_t b) {
    std::uint64_t result = 0;
    return __builtin_mul_overflow(a, b, &result) ? endlessWork : result;
}

/// The parallel parts are computed one after the other, each with 4 N r rounds of Salsa20/8 (RFC 7914), which together
/// take about as long as N r iterations of PBKDF2.
std::uint64_t workOfScrypt(const SCRYPT_PARAMS& parameters) {
    return product(product(workOf(parameters.costParameter), workOf(parameters.blockSize)),
                   workOf(parameters.parallelizationParameter));
}

std::uint64_t workOfKeyFunction(const X509_ALGOR* function) {
    if (nidOf(function) == NID_id_pbkdf2) {
        const auto parameters = parametersOf<Pbkdf2>(function, ASN1_ITEM_rptr(PBKDF2PARAM));
        return parameters ? workOf(parameters->iter) : 0;
    }
    if (nidOf(function) == NID_id_scrypt) {
        const auto parameters = parametersOf<Scrypt>(function, ASN1_ITEM_rptr(SCRYPT_PARAMS));
        return parameters ? workOfScrypt(*parameters) : 0;
    }
    return 0;
}

} // namespace

void WorkBudget::require(std::uint64_t work) const {
    if (work > left_) {
        throw cli::Failure(cli::ExitCode::input, message_,
                           "its passwords ask for more work than any key file needs (iterations of PBKDF2, or scrypt)");
    }
}

void WorkBudget::take(std::uint64_t work) {
    require(work);
    left_ -= work;
}

std::uint64_t workOf(const ASN1_INTEGER* iterations) {
    std::uint64_t count = 0;
    const bool positive = ASN1_INTEGER_get_uint64(&count, iterations) == 1 && count > 0;
    return positive ? count : endlessWork;
}

const X509_ALGOR* encryptionOf(const X509_SIG* encrypted) {
    const X509_ALGOR* algorithm = nullptr;
    X509_SIG_get0(encrypted, &algorithm, nullptr);
    return algorithm;
}

std::uint64_t workOf(const X509_ALGOR* encryption) {
    const csp::ossl::ErrorMark mark;
    if (nidOf(encryption) != NID_pbes2) {
        const auto parameters = parametersOf<Pbes1>(encryption, ASN1_ITEM_rptr(PBEPARAM));
        return parameters ? workOf(parameters->iter) : 0;
    }
    const auto scheme = parametersOf<Pbes2>(encryption, ASN1_ITEM_rptr(PBE2PARAM));
    return scheme ? workOfKeyFunction(scheme->keyfunc) : 0;
}

} // namespace klunortredi::admin
