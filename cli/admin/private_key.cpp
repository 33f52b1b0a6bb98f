#include "private_key.hpp"

#include "core/error.hpp"
#include "crypto/gost_params.hpp"
#include "crypto/key_pair.hpp"
#include "crypto/public_key_info.hpp"
#include "crypto/signature.hpp"
#include "failure.hpp"

#include <algorithm>
#include <array>
#include <string>

namespace klunortredi::admin {

namespace {

namespace ossl = csp::ossl;
using cli::ExitCode;
using cli::Failure;
using csp::Bytes;
using csp::KeyAlgorithm;

constexpr const char* cannot = "cannot take the private key";
constexpr DWORD shortestRsa = 2048; // bits: shorter ones are broken within reach

std::string dotted(const ASN1_OBJECT* oid) {
    std::array<char, 128> text{};
    OBJ_obj2txt(text.data(), static_cast<int>(text.size()), oid, 1);
    return text.data();
}

/// Writes the signature's OID where the agreement's stands: it is the same key, and OpenSSL knows it by the former.
void nameAlgorithm(PKCS8_PRIV_KEY_INFO* info, const KeyAlgorithm& algorithm) {
    ossl::Asn1Object oid(OBJ_txt2obj(std::string(algorithm.oid).c_str(), 1));
    // No version, parameters or octets given: those stay.
    if (!oid || PKCS8_pkey_set0(info, oid.get(), -1, V_ASN1_EOC, nullptr, nullptr, 0) != 1) {
        throw Failure(ExitCode::input, cannot, "it is not well-formed");
    }
    static_cast<void>(oid.release());
}

const csp::ProviderRecord& providerOf(const KeyAlgorithm& algorithm) {
    return *std::find_if(csp::providers.begin(), csp::providers.end(),
                         [&](const auto& row) { return row.keyOid == algorithm.oid; });
}

const KeyAlgorithm& algorithmOf(PKCS8_PRIV_KEY_INFO* info) {
    const ASN1_OBJECT* oid = nullptr;
    if (PKCS8_pkey_get0(&oid, nullptr, nullptr, nullptr, info) != 1) {
        throw Failure(ExitCode::input, cannot, "it is not well-formed");
    }
    const std::string name = dotted(oid);
    const KeyAlgorithm* const algorithm = csp::findKey(name);
    if (algorithm == nullptr) {
        throw Failure(ExitCode::service, cannot, "no provider keeps keys of the algorithm " + name,
                      "see 'klunortredi providers'");
    }
    if (name != algorithm->oid) {
        nameAlgorithm(info, *algorithm);
    }
    return *algorithm;
}

/// Test curves are for verifying published samples: their private keys are known, or easily found.
void refuseTestCurve(const KeyAlgorithm& algorithm, csp::ByteView publicKeyInfo) {
    const auto* const set =
        algorithm.gost ? csp::gostParamSetOf(algorithm, csp::spki::split(publicKeyInfo).parameters) : nullptr;
    if (set != nullptr && !set->generate) {
        throw Failure(ExitCode::service, cannot, "it is on the test curve " + std::string(set->oid));
    }
}

} // namespace

PrivateKey decodePrivateKey(PKCS8_PRIV_KEY_INFO* info) {
    const ossl::ErrorMark mark;
    const KeyAlgorithm& algorithm = algorithmOf(info);
    ossl::Pkey key(EVP_PKCS82PKEY(info));
    if (!key) {
        throw Failure(ExitCode::input, cannot, "it is not a key of its algorithm, or of an unknown parameter set");
    }
    if (!algorithm.gost && csp::keyBits(key.get()) < shortestRsa) {
        throw Failure(ExitCode::service, cannot, "an RSA key of less than 2048 bits protects nothing");
    }
    try {
        Bytes publicKey = csp::publicKeyInfo(key.get());
        refuseTestCurve(algorithm, publicKey);
        return {std::move(key), &providerOf(algorithm), std::move(publicKey)};
    } catch (const csp::ApiError& e) {
        throw Failure(ExitCode::service, cannot, "no provider keeps keys of its parameter set", {}, e.code());
    }
}

bool belongsTo(X509* certificate, const PrivateKey& key) {
    const ossl::ErrorMark mark;
    unsigned char* encoded = nullptr;
    const int size = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(certificate), &encoded);
    if (size <= 0) {
        return false;
    }
    const Bytes info(encoded, encoded + size);
    OPENSSL_free(encoded);
    try {
        return csp::samePublicKey(info, key.publicKeyInfo);
    } catch (const csp::ApiError&) {
        return false; // a key that no provider keeps: of another certificate of the file
    }
}

Bytes encodeCertificate(const X509* certificate) {
    unsigned char* encoded = nullptr;
    const int size = i2d_X509(certificate, &encoded);
    if (size <= 0) {
        throw Failure(ExitCode::input, "cannot take the certificate", "it is not well-formed");
    }
    Bytes der(encoded, encoded + size);
    OPENSSL_free(encoded);
    return der;
}

} // namespace klunortredi::admin
