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
FoundSigner choose(const std::vector<const CarriedCertificate*>& fitting, const SignatureModel& signature,
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

FoundSigner findBare(const SignatureModel& signature, const SignatureAlgorithm& algorithm, const std::string& digest,
                     const XmlVerifyOptions& options) {
    const auto keys = bareKeys(signature.keyInfo);
    const bool judged = std::any_of(keys.begin(), keys.end(),
                                    [&](const auto& key) { return EVP_PKEY_get_base_id(key.get()) == algorithm.key; });
    const auto fitting = std::find_if(keys.begin(), keys.end(), [&](const auto& key) {
        return isSignature(algorithm, key.get(), digest, signature.value);
    });
    if (fitting != keys.end() && options.allowBareKey) {
        return describe(fitting->get());
    }
    if (fitting != keys.end()) {
        unknown("the signature fits the key that it carries, but it carries no certificate that says whose key it is");
    }
    if (judged) {
        invalid("the signature does not fit the key that it carries");
    }
    unknown("the signature carries no certificate: the signer's certificate is needed");
}

} // namespace

FoundSigner findSigner(const SignatureModel& signature, const std::vector<const xmlNode*>& targets,
                       const SignatureAlgorithm& algorithm, const std::string& digest,
                       const XmlVerifyOptions& options) {
    const auto carried = carriedCertificates(signature.keyInfo);
    std::vector<const CarriedCertificate*> fitting;
    bool judged = false;
    for (const CarriedCertificate& one : carried) {
        const bool known = !fitting.empty() && EVP_PKEY_eq(one.key, fitting.front()->key) == 1;
        if (known || (fitting.empty() && isSignature(algorithm, one.key, digest, signature.value))) {
            fitting.push_back(&one);
        }
        judged = judged || EVP_PKEY_get_base_id(one.key) == algorithm.key;
    }
    if (!fitting.empty()) {
        return choose(fitting, signature, targets);
    }
    if (judged) {
        invalid("the signature has been changed, or none of the certificates that it carries is the signer's");
    }
    return findBare(signature, algorithm, digest, options);
}

} // namespace orvik::plugin::xml::internal
