#pragma once

/// A SignedData message being made.

#include "capi/types.h"
#include "messages/content_hasher.hpp"
#include "messages/content_segments.hpp"
#include "messages/handles.hpp"
#include "messages/signed_data_writer.hpp"
#include "messages/signer_builder.hpp"

#include <optional>
#include <string_view>
#include <vector>

namespace klunortredi::csp {

class SignedEncoder final : public Message {
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
    void doUpdate(ByteView piece, bool final) override;
    void doParam(DWORD type, DWORD index, void* data, DWORD* size) override;
    void doControl(DWORD type, const void* parameters) override;

    void takeContent(ByteView piece);
    void finish();
    void emit(ByteView piece, bool final = false);
    [[nodiscard]] bool streamsContent() const noexcept { return stream_ && !detached_; }
    [[nodiscard]] bool sizeTold() const noexcept;

    const bool detached_;
    const std::optional<StreamOutput> stream_;
    std::vector<SignerBuilder> signers_;
    SignedDataWriter writer_;
    ContentHasher hasher_;
    std::uint64_t contentSize_ = 0; ///< so far
    bool headWritten_ = false;
    bool finished_ = false;
    ContentSegments segments_;
    Bytes content_; ///< all of it, when the message is made in one piece
    Bytes encoded_; ///< the finished message, when it is not streamed
};

} // namespace klunortredi::csp
