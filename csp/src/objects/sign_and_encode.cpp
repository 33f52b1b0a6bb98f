#include "objects/sign_and_encode.hpp"

#include "asn1/der.hpp"
#include "core/output.hpp"
#include "crypto/digest.hpp"
#include "crypto/signature.hpp"
#include "keys/provider_context.hpp"
#include "objects/codec.hpp"
#include "x509/cert_info.hpp"

namespace klunortredi::csp {

namespace {

/// The hash that the algorithm stands for, when the key may sign with it.
const DigestAlgorithm& digestOf(const SignRequest& request, const ProviderContext& provider) {
    if (request.algorithm == nullptr || request.algorithm->pszObjId == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    const SignatureAlgorithm* const signature = findSignature(request.algorithm->pszObjId);
    if (signature == nullptr) {
        fail(capi::CRYPT_E_UNKNOWN_ALGO);
    }
    const ossl::Pkey key = publicKeyFromInfo(provider.publicKeyInfo(request.keySpec));
    const DigestAlgorithm* const digest = findDigest(signature->digestOid);
    // A bare key OID is no signature algorithm in X.509 (RFC 9215, 3), whatever it may be in CMS.
    const bool bareKey = signature->oid == signature->keyOid;
    if (digest == nullptr || bareKey || keyAlgorithm(key.get()).oid != signature->keyOid) {
        fail(capi::NTE_BAD_ALGID);
    }
    return *digest;
}

Bytes encodeToBeSigned(const SignRequest& request) {
    const auto type = reinterpret_cast<unsigned long>(request.structType); // NOLINT: a number in a pointer
    if (type != capi::X509_CERT_TO_BE_SIGNED && type != capi::X509_CERT_REQUEST_TO_BE_SIGNED) {
        fail(capi::ERROR_FILE_NOT_FOUND);
    }
    return encodeObject(request.encodingType, request.structType, request.info);
}

} // namespace

void signAndEncode(const SignRequest& request, BYTE* encoded, DWORD* size) {
    const auto provider = providerContext(request.provider);
    const DigestAlgorithm& digest = digestOf(request, *provider);
    const Bytes toBeSigned = encodeToBeSigned(request);
    const Bytes algorithm = encodeAlgorithm(*request.algorithm);
    const auto whole = [&](ByteView signature) {
        return der::sequence({toBeSigned, algorithm, der::bitString(signature)});
    };
    const std::size_t exactSize = whole(Bytes(provider->signatureSize(request.keySpec, digest))).size();
    if (size != nullptr && encoded != nullptr && *size >= exactSize) {
        give(whole(provider->sign(request.keySpec, digest, Digest::of(digest, toBeSigned), RsaScheme::pkcs1)), encoded,
             size);
    } else {
        give(Bytes(exactSize), encoded, size);
    }
}

} // namespace klunortredi::csp
