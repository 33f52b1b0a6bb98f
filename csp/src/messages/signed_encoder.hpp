#pragma once

/// A SignedData message being made.

#include "capi/types.h"
#include "messages/content_hasher.hpp"
#include "messages/content_segments.hpp"
#include "messages/message_encoder.hpp"
#include "messages/signed_data_writer.hpp"
#include "messages/signer_builder.hpp"

#include <optional>
#include <string_view>
#include <vector>

namespace klunortredi::csp {

class SignedEncoder final : public MessageEncoder {
public:
    /// Copies all that `info` leads to. `contentType`: dotted eContentType. With `stream`, the message goes to its
    /// callback while content arrives: BER of indefinite lengths when the content's size is not told and the content
    /// is inside, else DER. Without, it is kept for CMSG_CONTENT_PARAM. ApiError: ERROR_INVALID_PARAMETER and the
    /// errors of SignerBuilder.
    SignedEncoder(const CMSG_SIGNED_ENCODE_INFO& info, std::string_view contentType, bool detached,
                  std::optional<StreamOutput> stream);

    [[nodiscard]] std::vector<Bytes> certificates() const override;
    [[nodiscard]] std::vector<Bytes> crls() const override;

private:
    void takeContent(ByteView piece) override;
    void finish() override;
    [[nodiscard]] bool streamsContent() const noexcept { return streams() && !detached_; }

    const bool detached_;
    std::vector<SignerBuilder> signers_;
    SignedDataWriter writer_;
    ContentHasher hasher_;
    bool headWritten_ = false;
    ContentSegments segments_;
    Bytes content_; ///< all of it, when the message is made in one piece
};

} // namespace klunortredi::csp
