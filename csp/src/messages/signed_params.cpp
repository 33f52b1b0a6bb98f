#include "messages/signed_params.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "core/output.hpp"
#include "messages/counter_signatures.hpp"
#include "messages/param_pieces.hpp"
#include "messages/signed_decoder.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

using Request = ParamRequest<SignedDecoder>;

const SignerInfo& signer(const Request& request) {
    return indexed(request.message.signers(), request.index);
}

DWORD count(std::size_t size) {
    return static_cast<DWORD>(size);
}

// ---- pieces of structures --------------------------------------------------------------------------------------

template <class Struct>
void issuerAndSerial(StructBuilder& builder, const SignerInfo& signer, std::size_t offset = 0) {
    const SignerId id = pieces::asIssuerAndSerial(signer.id);
    builder.blob(offset + offsetof(Struct, Issuer), id.issuer);
    builder.blob(offset + offsetof(Struct, SerialNumber), Bytes(id.serial.rbegin(), id.serial.rend()));
}

void counterSignature(StructBuilder& builder, std::size_t offset, const CounterSignature& from) {
    auto& to = builder.at<CMSG_COUNTER_SIGNATURE>(offset);
    to.dwParent = from.parent;
    to.dwError = from.error;
    builder.blob(offset + offsetof(CMSG_COUNTER_SIGNATURE, Certificate), from.certificate);
    issuerAndSerial<CMSG_COUNTER_SIGNATURE>(builder, from.signer, offset);
    if (!from.signer.digest.oid.empty()) {
        pieces::algorithm(builder, offset + offsetof(CMSG_COUNTER_SIGNATURE, HashAlgorithm), from.signer.digest);
        pieces::algorithm(builder, offset + offsetof(CMSG_COUNTER_SIGNATURE, HashEncryptionAlgorithm),
                          from.signer.signature);
    }
    const auto& attributes = from.signer.signedAttributes;
    const auto time = std::ranges::find(attributes, oid::signingTime, &Attribute::oid);
    if (time != attributes.end() && time->values.size() == 1) {
        builder.blob(offset + offsetof(CMSG_COUNTER_SIGNATURE, SigningTime), time->values.front());
    }
}

// ---- parameters ------------------------------------------------------------------------------------------------

void type(const Request& request) {
    give(capi::CMSG_SIGNED, request.data, request.size);
}

void content(const Request& request) {
    give(request.message.content(), request.data, request.size);
}

void innerContentType(const Request& request) {
    giveText(request.message.contentType(), request.data, request.size);
}

void signerCount(const Request& request) {
    give(count(request.message.signers().size()), request.data, request.size);
}

void signerInfo(const Request& request) {
    const SignerInfo& from = signer(request);
    StructBuilder builder(sizeof(CMSG_SIGNER_INFO));
    builder.at<CMSG_SIGNER_INFO>(0).dwVersion = static_cast<DWORD>(from.version);
    issuerAndSerial<CMSG_SIGNER_INFO>(builder, from);
    pieces::algorithm(builder, offsetof(CMSG_SIGNER_INFO, HashAlgorithm), from.digest);
    pieces::algorithm(builder, offsetof(CMSG_SIGNER_INFO, HashEncryptionAlgorithm), from.signature);
    builder.blob(offsetof(CMSG_SIGNER_INFO, EncryptedHash), from.value);
    pieces::attributes(builder, offsetof(CMSG_SIGNER_INFO, AuthAttrs), from.signedAttributes);
    pieces::attributes(builder, offsetof(CMSG_SIGNER_INFO, UnauthAttrs), from.unsignedAttributes);
    builder.deliver(request.data, request.size);
}

void signerCertInfo(const Request& request) {
    StructBuilder builder(sizeof(CERT_INFO));
    issuerAndSerial<CERT_INFO>(builder, signer(request));
    builder.deliver(request.data, request.size);
}

void signerHashAlgorithm(const Request& request) {
    StructBuilder builder(sizeof(CRYPT_ALGORITHM_IDENTIFIER));
    pieces::algorithm(builder, 0, signer(request).digest);
    builder.deliver(request.data, request.size);
}

void giveAttributes(const Request& request, const std::vector<Attribute>& values) {
    if (values.empty()) {
        fail(capi::CRYPT_E_ATTRIBUTES_MISSING);
    }
    StructBuilder builder(sizeof(CRYPT_ATTRIBUTES));
    pieces::attributes(builder, 0, values);
    builder.deliver(request.data, request.size);
}

void signedAttributes(const Request& request) {
    giveAttributes(request, signer(request).signedAttributes);
}

void unsignedAttributes(const Request& request) {
    giveAttributes(request, signer(request).unsignedAttributes);
}

void counterSignatures(const Request& request) {
    const auto judged = judgeCounterSignatures(signer(request), request.message.carriedCertificates());
    StructBuilder builder(sizeof(CMSG_COUNTER_SIGNATURES));
    builder.at<CMSG_COUNTER_SIGNATURES>(0).cCounterSignature = count(judged.size());
    const std::size_t array = builder.reserve(judged.size() * sizeof(CMSG_COUNTER_SIGNATURE));
    if (!judged.empty()) {
        builder.point(offsetof(CMSG_COUNTER_SIGNATURES, rgCounterSignature), array);
    }
    for (std::size_t i = 0; i < judged.size(); ++i) {
        counterSignature(builder, array + i * sizeof(CMSG_COUNTER_SIGNATURE), judged[i]);
    }
    builder.deliver(request.data, request.size);
}

void encryptedDigest(const Request& request) {
    give(signer(request).value, request.data, request.size);
}

void computedHash(const Request& request) {
    give(request.message.contentHash(signer(request)), request.data, request.size);
}

void certificateCount(const Request& request) {
    give(count(request.message.certificateViews().size()), request.data, request.size);
}

void certificate(const Request& request) {
    give(indexed(request.message.certificateViews(), request.index), request.data, request.size);
}

void crlCount(const Request& request) {
    give(count(request.message.crlViews().size()), request.data, request.size);
}

void crl(const Request& request) {
    give(indexed(request.message.crlViews(), request.index), request.data, request.size);
}

void encodedMessage(const Request& request) {
    give(request.message.encoded(), request.data, request.size);
}

constexpr auto rows = std::to_array<ParamRow<SignedDecoder>>({
    {capi::CMSG_TYPE_PARAM, type},
    {capi::CMSG_CONTENT_PARAM, content},
    {capi::CMSG_INNER_CONTENT_TYPE_PARAM, innerContentType},
    {capi::CMSG_SIGNER_COUNT_PARAM, signerCount},
    {capi::CMSG_SIGNER_INFO_PARAM, signerInfo},
    {capi::CMSG_SIGNER_CERT_INFO_PARAM, signerCertInfo},
    {capi::CMSG_SIGNER_HASH_ALGORITHM_PARAM, signerHashAlgorithm},
    {capi::CMSG_SIGNER_AUTH_ATTR_PARAM, signedAttributes},
    {capi::CMSG_SIGNER_UNAUTH_ATTR_PARAM, unsignedAttributes},
    {capi::CMSG_CERT_COUNT_PARAM, certificateCount},
    {capi::CMSG_CERT_PARAM, certificate},
    {capi::CMSG_CRL_COUNT_PARAM, crlCount},
    {capi::CMSG_CRL_PARAM, crl},
    {capi::CMSG_COMPUTED_HASH_PARAM, computedHash},
    {capi::CMSG_ENCRYPTED_DIGEST, encryptedDigest},
    {capi::CMSG_ENCODED_MESSAGE, encodedMessage},
    {capi::CMSG_COUNTER_SIGNATURES_PARAM, counterSignatures},
});

} // namespace

void giveSignedParam(const SignedDecoder& message, DWORD type, DWORD index, void* data, DWORD* size) {
    giveParam<SignedDecoder>(rows, type, {message, index, data, size});
}

} // namespace klunortredi::csp
