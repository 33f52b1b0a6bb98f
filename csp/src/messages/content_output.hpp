#pragma once

/// Where the content of a message goes as it is read.

#include "core/bytes.hpp"
#include "messages/handles.hpp"

#include <optional>

namespace klunortredi::csp {

/// Content goes to the stream's callback and is not kept; without a stream it is kept in one piece.
class ContentOutput {
public:
    explicit ContentOutput(std::optional<StreamOutput> stream) : stream_(stream) {}

    /// The next octets; `final` is reported to the callback. ApiError: CRYPT_E_MSG_ERROR when the callback answers
    /// FALSE, CRYPT_E_ASN1_LARGE for more than one piece can hold.
    void add(ByteView piece, bool final = false);
    [[nodiscard]] bool streams() const noexcept { return stream_.has_value(); }
    /// All octets; ApiError(CRYPT_E_INVALID_MSG_TYPE) when they went to a callback.
    [[nodiscard]] ByteView onePiece() const;

private:
    std::optional<StreamOutput> stream_;
    Bytes kept_;
};

/// Adds `piece` to what is kept. ApiError(CRYPT_E_ASN1_LARGE) above limits::onePiece.
void keepWithinOnePiece(Bytes& kept, ByteView piece);

} // namespace klunortredi::csp
