#include "messages/content_output.hpp"

#include "asn1/der.hpp"
#include "core/error.hpp"
#include "messages/limits.hpp"

namespace klunortredi::csp {

void ContentOutput::add(ByteView piece, bool final) {
    if (stream_) {
        stream_->write(piece, final);
    } else {
        keepWithinOnePiece(kept_, piece);
    }
}

ByteView ContentOutput::onePiece() const {
    if (stream_) {
        fail(capi::CRYPT_E_INVALID_MSG_TYPE);
    }
    return kept_;
}

void keepWithinOnePiece(Bytes& kept, ByteView piece) {
    if (piece.size() > limits::onePiece - kept.size()) {
        fail(capi::CRYPT_E_ASN1_LARGE);
    }
    der::append(kept, piece);
}

} // namespace klunortredi::csp
