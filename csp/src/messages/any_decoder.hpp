#pragma once

/// A message whose kind is found out as it is read.

#include "messages/handles.hpp"

#include <memory>
#include <optional>

namespace klunortredi::csp {

/// Keeps the first octets until they name the content type of the ContentInfo (RFC 5652, 3), then hands everything to
/// the decoder of that type. What does not begin like a ContentInfo, or is of another type, goes to the decoder of
/// SignedData, which refuses it.
class AnyDecoder final : public Message {
public:
    AnyDecoder(bool detached, std::optional<StreamOutput> stream) : detached_(detached), stream_(stream) {}

    [[nodiscard]] std::vector<Bytes> certificates() const override { return known().certificates(); }
    [[nodiscard]] std::vector<Bytes> crls() const override { return known().crls(); }

private:
    void doUpdate(ByteView piece, bool final) override;
    void doParam(DWORD type, DWORD index, void* data, DWORD* size) override { known().param(type, index, data, size); }
    void doControl(DWORD type, const void* parameters) override { known().control(type, parameters); }

    /// ApiError(CRYPT_E_STREAM_MSG_NOT_READY) until the type is known.
    [[nodiscard]] Message& known() const;

    const bool detached_;
    const std::optional<StreamOutput> stream_;
    Bytes head_;
    std::shared_ptr<Message> decoder_;
};

/// A decoder of messages of `type` (CMSG_...; 0: found out from the message). Throws ApiError: CRYPT_E_INVALID_MSG_TYPE
/// for a type that is not read, NTE_BAD_FLAGS for detached enveloped or plain data.
std::shared_ptr<Message> makeDecoder(DWORD type, bool detached, const std::optional<StreamOutput>& stream);

} // namespace klunortredi::csp
