#include "crypto/rsa_public_key.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"

#include <openssl/core_names.h>
#include <openssl/param_build.h>

namespace klunortredi::csp {

namespace {

using ParamBuilder = std::unique_ptr<OSSL_PARAM_BLD, ossl::Deleter<OSSL_PARAM_BLD_free>>;
using Params = std::unique_ptr<OSSL_PARAM, ossl::Deleter<OSSL_PARAM_free>>;

struct Numbers {
    ossl::Bn modulus;
    ossl::Bn exponent;
};

ossl::Bn number(ByteView octets) {
    return ossl::Bn(BN_bin2bn(octets.data(), static_cast<int>(octets.size()), nullptr));
}

Numbers read(ByteView der) {
    der::Reader members(der::readOnly(der, der::tag::Sequence).content);
    Numbers numbers;
    numbers.modulus = number(members.read(der::tag::Integer).content);
    numbers.exponent = number(members.read(der::tag::Integer).content);
    members.finish();
    return numbers;
}

ossl::Pkey keyOf(const Numbers& numbers) {
    const ParamBuilder builder(OSSL_PARAM_BLD_new());
    if (!builder || OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, numbers.modulus.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, numbers.exponent.get()) != 1) {
        return nullptr;
    }
    const Params params(OSSL_PARAM_BLD_to_param(builder.get()));
    const ossl::PkeyCtx context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    EVP_PKEY* key = nullptr;
    if (!params || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get()) != 1) {
        return nullptr;
    }
    return ossl::Pkey(key);
}

} // namespace

ossl::Pkey rsaPublicKey(ByteView der) {
    try {
        return keyOf(read(der));
    } catch (const ApiError&) {
        return nullptr;
    }
}

} // namespace klunortredi::csp
