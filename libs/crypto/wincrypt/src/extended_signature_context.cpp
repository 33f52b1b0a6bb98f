#include "signature_context.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/signature_creator.hpp"

#include <utility>

namespace orvik::plugin::wincrypt::binary {

namespace {

/// A message of definite lengths needs its content's size in 32 bits, of which one value means "not known".
bool fitsDefiniteLength(std::uint64_t size) {
    return size < capi::CMSG_INDEFINITE_LENGTH;
}

[[noreturn]] void refuseLength(const char* function) {
    raise(crypto::exception::SystemException(capi::CRYPT_E_BAD_LEN), {"signature_creator", function});
}

} // namespace

ExtendedContext::ExtendedContext(const crypto::ICertificate& certificate,
                                 const std::vector<crypto::format::SignatureRequest::Attribute>& attributes,
                                 std::vector<std::string> issuers)
    : Context(certificate, attributes), issuers_(std::move(issuers)), sink_({}) {
    addIssuers();
}

ExtendedContext::ExtendedContext(const crypto::ICertificate& certificate, const ExtendedParams& params)
    : Context(certificate, params.attributes), issuers_(params.issuers), sink_(params.sink),
      contentSize_(params.contentSize) {
    addIssuers();
    if (contentSize_ && fitsDefiniteLength(*contentSize_)) {
        stream().cbContent = static_cast<DWORD>(*contentSize_);
    }
    if (sink_) {
        sink_.connect(stream());
    }
}

void ExtendedContext::addIssuers() {
    std::vector<CRYPT_DATA_BLOB> blobs;
    for (std::string& issuer : issuers_) {
        blobs.push_back({static_cast<DWORD>(issuer.size()), reinterpret_cast<BYTE*>(issuer.data())});
    }
    addCertificates(blobs);
}

void ExtendedContext::count(std::size_t size) {
    taken_ += size;
    if (contentSize_ && taken_ > *contentSize_) {
        refuseLength("updateImpl");
    }
}

void ExtendedContext::checkComplete() const {
    if (contentSize_ && taken_ != *contentSize_) {
        refuseLength("finalizeImpl");
    }
}

void ExtendedContext::rethrowSinkFailure() {
    sink_.rethrowFailure();
}

} // namespace orvik::plugin::wincrypt::binary
