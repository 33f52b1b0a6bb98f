#include "messages/message_encoder.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "core/output.hpp"

namespace klunortredi::csp {

bool MessageEncoder::sizeTold() const noexcept {
    return stream_ && stream_->contentSize() != capi::CMSG_INDEFINITE_LENGTH;
}

void MessageEncoder::doUpdate(ByteView piece, bool final) {
    if (finished_) {
        fail(capi::CRYPT_E_MSG_ERROR);
    }
    contentSize_ += piece.size();
    if (sizeTold() && (contentSize_ > toldSize() || (final && contentSize_ != toldSize()))) {
        fail(capi::CRYPT_E_BAD_LEN);
    }
    takeContent(piece);
    if (final) {
        finish();
        finished_ = true;
    }
}

void MessageEncoder::emit(ByteView piece, bool final) {
    if (stream_) {
        stream_->write(piece, final);
    } else {
        der::append(encoded_, piece);
    }
}

void MessageEncoder::doParam(DWORD type, DWORD /*index*/, void* data, DWORD* size) {
    switch (type) {
    case capi::CMSG_TYPE_PARAM:
        give(type_, data, size);
        return;
    case capi::CMSG_CONTENT_PARAM:
    case capi::CMSG_ENCODED_MESSAGE:
        if (stream_) {
            fail(capi::CRYPT_E_INVALID_MSG_TYPE);
        }
        if (!finished_) {
            fail(capi::CRYPT_E_STREAM_MSG_NOT_READY);
        }
        give(encoded_, data, size);
        return;
    default:
        fail(capi::CRYPT_E_INVALID_MSG_TYPE);
    }
}

void MessageEncoder::doControl(DWORD /*type*/, const void* /*parameters*/) {
    fail(capi::CRYPT_E_CONTROL_TYPE); // a message being made has no controls
}

} // namespace klunortredi::csp
