#include "signed_message.hpp"

#include <algorithm>

namespace conformance {

namespace {

using namespace capi;

BOOL collect(const void* argument, BYTE* data, DWORD size, BOOL final) {
    // The callback's argument is the caller's own object; only its type is const.
    auto& sink = *static_cast<Sink*>(const_cast<void*>(argument)); // NOLINT(cppcoreguidelines-pro-type-const-cast)
    sink.octets.insert(sink.octets.end(), data, data + size);
    sink.finals += final != 0 ? 1 : 0;
    return 1;
}

Certificate contextOf(const Bytes& der) {
    Certificate made(api().CertCreateCertificateContext(X509_AND_PKCS_7, der.data(), sizeOf(der)));
    must(made.get() != nullptr, "making a certificate context");
    return made;
}

DWORD openFlags(const Feeding& feeding) {
    return feeding.detached ? CMSG_DETACHED_FLAG : 0;
}

} // namespace

Signer::Signer(const ProviderKind& kind)
    : container_(kind.type, {AT_KEYEXCHANGE}), der_(selfSigned(container_.context(), AT_KEYEXCHANGE, kind)),
      certificate_(contextOf(der_)) {}

Description::Description(const Signer& of, const ProviderKind& kind)
    : hashOid_(kind.hashOid), attributeOid_(szOID_RSA_signingTime), time_(octets("\x17\x0D"
                                                                                 "260101000000Z")),
      der_(of.der()) {
    value_ = {sizeOf(time_), time_.data()};
    attribute_ = {attributeOid_.data(), 1, &value_};
    certificate_ = {sizeOf(der_), der_.data()};
    signer.cbSize = sizeof signer;
    signer.pCertInfo = of.info();
    signer.hCryptProv = of.context();
    signer.dwKeySpec = AT_KEYEXCHANGE;
    signer.HashAlgorithm.pszObjId = hashOid_.data();
    signer.cAuthAttr = 1;
    signer.rgAuthAttr = &attribute_;
    info.cbSize = sizeof info;
    info.cSigners = 1;
    info.rgSigners = &signer;
    info.cCertEncoded = 1;
    info.rgCertEncoded = &certificate_;
}

CMSG_STREAM_INFO Sink::info() {
    return {CMSG_INDEFINITE_LENGTH, collect, this};
}

bool feed(const Message& message, const Bytes& octets, std::size_t chunk) {
    const std::size_t step = chunk == 0 ? octets.size() : chunk;
    for (std::size_t at = 0; at < octets.size(); at += step) {
        const std::size_t size = std::min(step, octets.size() - at);
        const BOOL final = at + size == octets.size() ? 1 : 0;
        if (api().CryptMsgUpdate(message.get(), octets.data() + at, static_cast<DWORD>(size), final) == 0) {
            return false;
        }
    }
    return true;
}

Bytes signMessage(const Signer& signer, const ProviderKind& kind, const Bytes& content, const Feeding& feeding) {
    Description description(signer, kind);
    Sink sink;
    CMSG_STREAM_INFO stream = sink.info();
    const Message message(api().CryptMsgOpenToEncode(X509_AND_PKCS_7, openFlags(feeding), CMSG_SIGNED,
                                                     &description.info, nullptr, feeding.streamed ? &stream : nullptr));
    must(message.get() != nullptr, "opening a message to sign");
    must(feed(message, content, feeding.chunk), "signing");
    return feeding.streamed ? sink.octets : fetch(messageParam(message, CMSG_CONTENT_PARAM));
}

Decoded readMessage(const Bytes& encoded, const Bytes& content, const Feeding& feeding) {
    Sink sink;
    CMSG_STREAM_INFO stream = sink.info();
    Message message(api().CryptMsgOpenToDecode(X509_AND_PKCS_7, openFlags(feeding), 0, 0, nullptr,
                                               feeding.streamed ? &stream : nullptr));
    must(message.get() != nullptr, "opening a message to read");
    must(feed(message, encoded, feeding.chunk), "reading a message");
    must(!feeding.detached || feed(message, content, feeding.chunk), "reading the content");
    return {std::move(message), sink.octets};
}

Fetch messageParam(const Message& message, DWORD type, DWORD index) {
    return [&message, type, index](void* buffer, DWORD* size) {
        return api().CryptMsgGetParam(message.get(), type, index, buffer, size) != 0;
    };
}

} // namespace conformance
