#pragma once

/// What all messages that are made have in common: the content's size, the output, and the finished message.

#include "messages/handles.hpp"

#include <cstdint>
#include <optional>

namespace klunortredi::csp {

/// With a stream, the message goes to its callback while content arrives; without, it is kept for CMSG_CONTENT_PARAM
/// and CMSG_ENCODED_MESSAGE. It has no controls.
class MessageEncoder : public Message {
protected:
    /// `type`: CMSG_...
    MessageEncoder(DWORD type, std::optional<StreamOutput> stream) : type_(type), stream_(stream) {}

    /// The next octets of content. `contentSize()` includes them.
    virtual void takeContent(ByteView piece) = 0;
    /// All content came: the rest of the message goes out.
    virtual void finish() = 0;

    /// Gives the next octets of the message out.
    void emit(ByteView piece, bool final = false);
    [[nodiscard]] bool streams() const noexcept { return stream_.has_value(); }
    /// Whether the stream names the size of the content beforehand.
    [[nodiscard]] bool sizeTold() const noexcept;
    /// That size.
    [[nodiscard]] DWORD toldSize() const noexcept { return stream_->contentSize(); }
    /// Octets of content so far.
    [[nodiscard]] std::uint64_t contentSize() const noexcept { return contentSize_; }

private:
    /// ApiError: CRYPT_E_MSG_ERROR after the end, CRYPT_E_BAD_LEN when the content is not of the size that was named.
    void doUpdate(ByteView piece, bool final) final;
    void doParam(DWORD type, DWORD index, void* data, DWORD* size) final;
    void doControl(DWORD type, const void* parameters) final;

    const DWORD type_;
    const std::optional<StreamOutput> stream_;
    std::uint64_t contentSize_ = 0;
    bool finished_ = false;
    Bytes encoded_; ///< the message so far, when it is not streamed
};

} // namespace klunortredi::csp
