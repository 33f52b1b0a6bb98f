#include "messages/enveloped_params.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "core/output.hpp"
#include "messages/enveloped_decoder.hpp"
#include "messages/param_pieces.hpp"

#include <algorithm>
#include <array>

namespace klunortredi::csp {

namespace {

using Request = ParamRequest<EnvelopedDecoder>;

void type(const Request& request) {
    request.message.head();
    give(capi::CMSG_ENVELOPED, request.data, request.size);
}

void content(const Request& request) {
    give(request.message.content(), request.data, request.size);
}

void innerContentType(const Request& request) {
    giveText(request.message.head().contentType, request.data, request.size);
}

void envelopeAlgorithm(const Request& request) {
    StructBuilder builder(sizeof(CRYPT_ALGORITHM_IDENTIFIER));
    pieces::algorithm(builder, 0, request.message.head().algorithm);
    builder.deliver(request.data, request.size);
}

void recipientCount(const Request& request) {
    give(static_cast<DWORD>(request.message.head().recipients.size()), request.data, request.size);
}

void recipientIndex(const Request& request) {
    give(request.message.recipientIndex(), request.data, request.size);
}

/// CERT_INFO with issuer and serial number. For a recipient that is not named by them no certificate compares equal:
/// one named by key identifier has an issuer of one attribute that holds it and the serial number 0, and those of
/// other kinds (a password, a shared key) have neither.
void recipientInfo(const Request& request) {
    const Recipient& from = indexed(request.message.head().recipients, request.index);
    StructBuilder builder(sizeof(CERT_INFO));
    if (from.kind != RecipientKind::Other) {
        const SignerId id = pieces::asIssuerAndSerial(from.id);
        builder.blob(offsetof(CERT_INFO, Issuer), id.issuer);
        builder.blob(offsetof(CERT_INFO, SerialNumber), Bytes(id.serial.rbegin(), id.serial.rend()));
    }
    builder.deliver(request.data, request.size);
}

void unprotectedAttributes(const Request& request) {
    const auto& attributes = request.message.whole().unprotectedAttributes;
    if (attributes.empty()) {
        fail(capi::CRYPT_E_ATTRIBUTES_MISSING);
    }
    StructBuilder builder(sizeof(CRYPT_ATTRIBUTES));
    pieces::attributes(builder, 0, attributes);
    builder.deliver(request.data, request.size);
}

constexpr auto rows = std::to_array<ParamRow<EnvelopedDecoder>>({
    {capi::CMSG_TYPE_PARAM, type},
    {capi::CMSG_CONTENT_PARAM, content},
    {capi::CMSG_INNER_CONTENT_TYPE_PARAM, innerContentType},
    {capi::CMSG_ENVELOPE_ALGORITHM_PARAM, envelopeAlgorithm},
    {capi::CMSG_RECIPIENT_COUNT_PARAM, recipientCount},
    {capi::CMSG_RECIPIENT_INDEX_PARAM, recipientIndex},
    {capi::CMSG_RECIPIENT_INFO_PARAM, recipientInfo},
    {capi::CMSG_UNPROTECTED_ATTR_PARAM, unprotectedAttributes},
});

} // namespace

void giveEnvelopedParam(const EnvelopedDecoder& message, DWORD type, DWORD index, void* data, DWORD* size) {
    giveParam<EnvelopedDecoder>(rows, type, {message, index, data, size});
}

} // namespace klunortredi::csp
