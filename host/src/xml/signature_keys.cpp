#include "signature_keys.hpp"

#include "limits.hpp"
#include "nodes.hpp"
#include "refusal.hpp"

#include <openssl/core_names.h>
#include <openssl/param_build.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace orvik::plugin::xml::internal {

namespace {

using ssl::internal::fromDer;
using ssl::internal::Owned;
using ParamsPtr = Owned<OSSL_PARAM, OSSL_PARAM_free>;
using NumberPtr = Owned<BIGNUM, BN_free>;

constexpr const char* dsig11Ns = "http://www.w3.org/2009/xmldsig11#";

const xmlNode* childOf(const xmlNode* parent, const char* name, const char* ns = dsigNs) {
    for (const xmlNode* child = parent->children; child != nullptr; child = child->next) {
        if (isElement(child, name, ns)) {
            return child;
        }
    }
    return nullptr;
}

template <class Visit>
void forEachChild(const xmlNode* parent, const char* name, const char* ns, Visit visit) {
    for (const xmlNode* child = parent == nullptr ? nullptr : parent->children; child != nullptr; child = child->next) {
        if (isElement(child, name, ns)) {
            visit(child);
        }
    }
}

KeyPtr makeKey(const char* type, OSSL_PARAM_BLD* builder) {
    const ParamsPtr params(OSSL_PARAM_BLD_to_param(builder));
    const Owned<EVP_PKEY_CTX, EVP_PKEY_CTX_free> context(EVP_PKEY_CTX_new_from_name(nullptr, type, nullptr));
    EVP_PKEY* key = nullptr;
    if (params && context && EVP_PKEY_fromdata_init(context.get()) == 1) {
        EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get());
    }
    return KeyPtr(key);
}

struct NumberName {
    const char* element;
    const char* parameter;
};
constexpr std::array rsaNumbers = {NumberName{"Modulus", OSSL_PKEY_PARAM_RSA_N},
                                   NumberName{"Exponent", OSSL_PKEY_PARAM_RSA_E}};
constexpr std::array dsaNumbers = {NumberName{"P", OSSL_PKEY_PARAM_FFC_P}, NumberName{"Q", OSSL_PKEY_PARAM_FFC_Q},
                                   NumberName{"G", OSSL_PKEY_PARAM_FFC_G}, NumberName{"Y", OSSL_PKEY_PARAM_PUB_KEY}};

/// A key whose parts are numbers, each in an element of its own (CryptoBinary); null when one is missing.
template <std::size_t N>
KeyPtr numbersKey(const xmlNode* value, const char* type, const std::array<NumberName, N>& names) {
    const Owned<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free> builder(OSSL_PARAM_BLD_new());
    std::array<NumberPtr, N> numbers;
    for (std::size_t i = 0; i < N; ++i) {
        const xmlNode* element = childOf(value, names[i].element);
        if (element == nullptr) {
            return {};
        }
        const std::string octets = octetsOf(element);
        numbers[i].reset(
            BN_bin2bn(reinterpret_cast<const unsigned char*>(octets.data()), static_cast<int>(octets.size()), nullptr));
        OSSL_PARAM_BLD_push_BN(builder.get(), names[i].parameter, numbers[i].get());
    }
    return makeKey(type, builder.get());
}

/// A point on a curve that is named by its OID; null for any other.
KeyPtr ecKey(const xmlNode* value) {
    constexpr std::string_view scheme = "urn:oid:";
    const xmlNode* const curve = childOf(value, "NamedCurve", dsig11Ns);
    const xmlNode* const point = childOf(value, "PublicKey", dsig11Ns);
    const std::string uri = curve == nullptr ? std::string() : attributeOf(curve, "URI");
    if (point == nullptr || !uri.starts_with(scheme)) {
        return {};
    }
    const char* const group = OBJ_nid2sn(OBJ_txt2nid(uri.substr(scheme.size()).c_str()));
    const std::string octets = octetsOf(point);
    const Owned<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free> builder(OSSL_PARAM_BLD_new());
    OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, group == nullptr ? "" : group, 0);
    OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, octets.data(), octets.size());
    return makeKey("EC", builder.get());
}

/// Empty when the text is not Base64.
std::string certificateOctets(const xmlNode* element) {
    try {
        return octetsOf(element);
    } catch (const Refusal&) {
        return {};
    }
}

} // namespace

ReadCertificate readCertificate(std::string der) {
    const ssl::internal::ErrorMark mark;
    auto certificate = fromDer<Owned<X509, X509_free>>(der, d2i_X509);
    EVP_PKEY* const key = certificate ? X509_get0_pubkey(certificate.get()) : nullptr;
    return {std::move(der), std::move(certificate), key};
}

CarriedCertificates carriedCertificates(const xmlNode* keyInfo) {
    CarriedCertificates found;
    std::size_t count = 0;
    const auto add = [&](const xmlNode* element) {
        if (++count > limits::certificatesPerSignature) {
            unknown("the signature carries more certificates than are tried here");
        }
        ReadCertificate one = readCertificate(certificateOctets(element));
        found.damaged = found.damaged || !one.certificate;
        found.unsupported = found.unsupported || (one.certificate && one.key == nullptr);
        const bool repeated = std::any_of(found.usable.begin(), found.usable.end(),
                                          [&](const auto& known) { return known.der == one.der; });
        if (one.key != nullptr && !repeated) {
            found.usable.push_back(std::move(one));
        }
    };
    forEachChild(keyInfo, "X509Data", dsigNs,
                 [&](const xmlNode* data) { forEachChild(data, "X509Certificate", dsigNs, add); });
    return found;
}

std::vector<KeyPtr> bareKeys(const xmlNode* keyInfo) {
    std::vector<KeyPtr> found;
    std::size_t count = 0;
    const auto add = [&](KeyPtr key) {
        if (key) {
            found.push_back(std::move(key));
        }
    };
    const auto limit = [&] {
        if (++count > limits::certificatesPerSignature) {
            unknown("the signature carries more keys than are tried here");
        }
    };
    const ssl::internal::ErrorMark mark;
    forEachChild(keyInfo, "KeyValue", dsigNs, [&](const xmlNode* value) {
        limit();
        if (const xmlNode* rsa = childOf(value, "RSAKeyValue")) {
            add(numbersKey(rsa, "RSA", rsaNumbers));
        } else if (const xmlNode* dsa = childOf(value, "DSAKeyValue")) {
            add(numbersKey(dsa, "DSA", dsaNumbers));
        } else if (const xmlNode* ec = childOf(value, "ECKeyValue", dsig11Ns)) {
            add(ecKey(ec));
        }
    });
    forEachChild(keyInfo, "DEREncodedKeyValue", dsig11Ns, [&](const xmlNode* value) {
        limit();
        add(fromDer<KeyPtr>(octetsOf(value), d2i_PUBKEY));
    });
    return found;
}

} // namespace orvik::plugin::xml::internal
