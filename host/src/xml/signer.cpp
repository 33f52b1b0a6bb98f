#include "signer.hpp"

#include "coverage.hpp"
#include "refusal.hpp"
#include "signature_keys.hpp"
#include "xades.hpp"

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

FoundSigner describe(const EVP_PKEY* key) {
    return {{}, false, oidOf(key), static_cast<unsigned>(EVP_PKEY_get_bits(key))};
}

std::string digestOf(const std::string& octets, const NamedCertificate& named) {
    const DigestAlgorithm* const algorithm = digestAlgorithm(named.digestMethod);
    if (algorithm == nullptr) {
        unknown("the signing-certificate property uses a digest that is not supported: " + shown(named.digestMethod));
    }
    Digest digest(*algorithm);
    digest.update(octets);
    return digest.finish();
}

bool isNamed(const std::string& certificate, const std::vector<NamedCertificate>& names) {
    return std::all_of(names.begin(), names.end(),
                       [&](const NamedCertificate& named) { return digestOf(certificate, named) == named.digest; });
}

/// Of certificates with the same key the signer's.
FoundSigner choose(const std::vector<const ReadCertificate*>& fitting, const SignatureModel& signature,
                   const std::vector<const xmlNode*>& targets) {
    FoundSigner signer = describe(fitting.front()->key);
    signer.certificate = fitting.front()->der;
    const auto names = namedCertificates(signature, targets);
    signer.certificateProtected = !names.empty() || isCovered(signature.keyInfo, signature, targets);
    if (!names.empty()) {
        const auto named =
            std::find_if(fitting.begin(), fitting.end(), [&](const auto* one) { return isNamed(one->der, names); });
        if (named == fitting.end()) {
            invalid("the signature names another certificate as its signer's than the one whose key fits");
        }
        signer.certificate = (*named)->der;
    }
    return signer;
}

/// A signature's value, and what it is to be checked with.
struct Value {
    const SignatureModel& signature;
    const SignatureAlgorithm& algorithm;
    const std::string& digest;

    [[nodiscard]] bool fits(EVP_PKEY* key) const { return isSignature(algorithm, key, digest, signature.value); }
    [[nodiscard]] bool judgedBy(const EVP_PKEY* key) const {
        return key != nullptr && EVP_PKEY_get_base_id(key) == algorithm.key;
    }
};

/// The certificates whose key fits.
std::vector<const ReadCertificate*> fittingOf(const Value& value, const std::vector<ReadCertificate>& among) {
    std::vector<const ReadCertificate*> fitting;
    for (const ReadCertificate& one : among) {
        const bool known = !fitting.empty() && EVP_PKEY_eq(one.key, fitting.front()->key) == 1;
        if (known || (fitting.empty() && value.fits(one.key))) {
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

FoundSigner findBare(const Value& value, const CarriedCertificates& carried, const XmlVerifyOptions& options) {
    const auto keys = bareKeys(value.signature.keyInfo);
    const bool judged =
        std::any_of(keys.begin(), keys.end(), [&](const auto& key) { return value.judgedBy(key.get()); });
    const auto fitting = std::find_if(keys.begin(), keys.end(), [&](const auto& key) { return value.fits(key.get()); });
    if (fitting != keys.end() && options.allowBareKey) {
        return describe(fitting->get());
    }
    if (fitting != keys.end()) {
        unknown("the signature fits the key that it carries, but nothing says whose key it is: " + lackOf(carried));
    }
    if (judged) {
        invalid("the signature does not fit the key that it carries");
    }
    unknown(lackOf(carried) + ": the signer's certificate is needed");
}

} // namespace

FoundSigner findSigner(const SignatureModel& signature, const std::vector<const xmlNode*>& targets,
                       const SignatureAlgorithm& algorithm, const std::string& digest,
                       const XmlVerifyOptions& options) {
    const Value value{signature, algorithm, digest};
    const ReadCertificate given = readCertificate(options.certificate);
    if (given.key != nullptr && value.fits(given.key)) {
        FoundSigner signer = choose({&given}, signature, targets);
        signer.certificateProtected = true;
        return signer;
    }
    const CarriedCertificates carried = carriedCertificates(signature.keyInfo);
    const auto fitting = fittingOf(value, carried.usable);
    if (!fitting.empty()) {
        return choose(fitting, signature, targets);
    }
    const bool judged = std::any_of(carried.usable.begin(), carried.usable.end(),
                                    [&](const auto& one) { return value.judgedBy(one.key); });
    if (judged && !carried.damaged) {
        invalid("the signature has been changed, or none of the certificates that it carries is the signer's");
    }
    if (value.judgedBy(given.key)) {
        invalid("the signature has been changed, or the given certificate is not the signer's");
    }
    return findBare(value, carried, options);
}

} // namespace orvik::plugin::xml::internal
