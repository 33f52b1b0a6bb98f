#include "signer.hpp"

#include "coverage.hpp"
#include "refusal.hpp"
#include "signature_keys.hpp"

#include <openssl/core_names.h>
#include <openssl/objects.h>

#include <algorithm>
#include <array>

namespace orvik::plugin::xml::internal {

namespace {

std::string oidOf(const EVP_PKEY* key) {
    std::array<char, 64> text{};
    OBJ_obj2txt(text.data(), text.size(), OBJ_nid2obj(EVP_PKEY_get_base_id(key)), 1);
    return text.data();
}

/// Refuses keys whose form lets anybody make signatures that fit: RSA exponents that are even, 1, or larger than any
/// honest one (FIPS 186-5, A.1.1), and curves whose base point the key's holder chose (RFC 5480, 2.1.1).
void requireHonestForm(const EVP_PKEY* key) {
    constexpr int largestExponent = 256; // bits
    const ssl::internal::ErrorMark mark;
    BIGNUM* number = nullptr;
    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &number);
    const ssl::internal::Owned<BIGNUM, BN_free> exponent(number);
    if (exponent && (BN_is_odd(exponent.get()) == 0 || BN_is_one(exponent.get()) != 0 ||
                     BN_num_bits(exponent.get()) > largestExponent)) {
        invalid("the exponent of the signer's RSA key lets anybody make such a signature");
    }
    int isExplicit = 0;
    if (EVP_PKEY_get_base_id(key) == EVP_PKEY_EC &&
        EVP_PKEY_get_int_param(key, OSSL_PKEY_PARAM_EC_DECODED_FROM_EXPLICIT_PARAMS, &isExplicit) == 1 &&
        isExplicit != 0) {
        unknown("the signer's key is on a curve that has no name");
    }
}

FoundSigner describe(const EVP_PKEY* key) {
    requireHonestForm(key);
    return {{}, false, oidOf(key), static_cast<unsigned>(EVP_PKEY_get_bits(key))};
}

/// Of certificates with the same key the signer's.
FoundSigner choose(const std::vector<const ReadCertificate*>& fitting, const SignatureToCheck& check) {
    const auto& names = check.properties.certificates;
    const auto isNamedByAll = [&](const ReadCertificate* one) {
        return std::all_of(names.begin(), names.end(),
                           [&](const auto& name) { return isNamed(one->der, *one->certificate, name); });
    };
    const auto named = std::find_if(fitting.begin(), fitting.end(), isNamedByAll);
    if (named == fitting.end()) {
        invalid("the signature names another certificate as its signer's than the one whose key fits");
    }
    FoundSigner signer = describe((*named)->key);
    signer.certificate = (*named)->der;
    signer.certificateProtected = !names.empty() || isCovered(check.signature.keyInfo, check.signature, check.targets);
    return signer;
}

bool isOfAlgorithm(const EVP_PKEY* key, const SignatureToCheck& check) {
    return key != nullptr && EVP_PKEY_get_base_id(key) == check.algorithm.key;
}

bool fits(EVP_PKEY* key, const SignatureToCheck& check) {
    if (!isOfAlgorithm(key, check)) {
        return false;
    }
    if (check.keysLeft == 0) {
        unknown("the signatures of the document carry more keys than are tried");
    }
    --check.keysLeft;
    return isSignature(check.algorithm, key, check.digest, check.signature.value);
}

/// The certificates whose key fits.
std::vector<const ReadCertificate*> fittingOf(const SignatureToCheck& check,
                                              const std::vector<ReadCertificate>& among) {
    std::vector<const ReadCertificate*> fitting;
    for (const ReadCertificate& one : among) {
        const bool known = !fitting.empty() && EVP_PKEY_eq(one.key, fitting.front()->key) == 1;
        if (known || (fitting.empty() && fits(one.key, check))) {
            fitting.push_back(&one);
        }
    }
    return fitting;
}

/// Why a signature whose certificates do not help has no signer.
std::string lackOf(const CarriedCertificates& carried) {
    if (carried.damaged) {
        return "a certificate that the signature carries is damaged";
    }
    if (carried.unsupported) {
        return "a certificate that the signature carries has a key that is not supported";
    }
    return carried.usable.empty() ? "the signature carries no certificate"
                                  : "no certificate that the signature carries has a key of its algorithm";
}

FoundSigner findBare(const SignatureToCheck& check, const CarriedCertificates& carried,
                     const XmlVerifyOptions& options) {
    const auto keys = bareKeys(check.signature.keyInfo);
    const auto fitting =
        std::find_if(keys.begin(), keys.end(), [&](const auto& key) { return fits(key.get(), check); });
    if (fitting != keys.end() && options.allowBareKey) {
        return describe(fitting->get());
    }
    if (fitting != keys.end()) {
        unknown("the signature fits the key that it carries, but nothing says whose key it is: " + lackOf(carried));
    }
    if (std::any_of(keys.begin(), keys.end(), [&](const auto& key) { return isOfAlgorithm(key.get(), check); })) {
        invalid("the signature does not fit the key that it carries");
    }
    unknown(lackOf(carried) + ": the signer's certificate is needed");
}

} // namespace

FoundSigner findSigner(const SignatureToCheck& check, const XmlVerifyOptions& options) {
    const ReadCertificate given = readCertificate(options.certificate);
    if (fits(given.key, check)) {
        FoundSigner signer = choose({&given}, check);
        signer.certificateProtected = true;
        return signer;
    }
    const CarriedCertificates carried = carriedCertificates(check.signature.keyInfo);
    const auto fitting = fittingOf(check, carried.usable);
    if (!fitting.empty()) {
        return choose(fitting, check);
    }
    const bool judged = std::any_of(carried.usable.begin(), carried.usable.end(),
                                    [&](const auto& one) { return isOfAlgorithm(one.key, check); });
    if (judged && !carried.damaged) {
        invalid("the signature has been changed, or none of the certificates that it carries is the signer's");
    }
    if (isOfAlgorithm(given.key, check)) {
        invalid("the signature has been changed, or the given certificate is not the signer's");
    }
    return findBare(check, carried, options);
}

} // namespace orvik::plugin::xml::internal
