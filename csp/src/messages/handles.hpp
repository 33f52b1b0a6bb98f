#pragma once

/// Message objects and the handles under which callers know them.

#include "capi/types.h"
#include "messages/message.hpp"

#include <atomic>
#include <string>

namespace klunortredi::csp {

/// A message being made or read. An error leaves it failed: each later call is refused with the same code, but for
/// CMSG_EXCEEDED_LIMIT_PARAM.
///
/// A message is used by one call at a time; a second one, from another thread or from within the stream callback, is
/// refused with ERROR_BUSY.
class Message : public CertificateCarrier {
public:
    /// Takes the next octets; `final` ends what is being fed. Throws ApiError.
    void update(ByteView piece, bool final);
    /// CryptMsgGetParam, two-call protocol.
    void param(DWORD type, DWORD index, void* data, DWORD* size);
    /// CryptMsgControl.
    void control(DWORD type, const void* parameters);

protected:
    virtual void doUpdate(ByteView piece, bool final) = 0;
    virtual void doParam(DWORD type, DWORD index, void* data, DWORD* size) = 0;
    virtual void doControl(DWORD type, const void* parameters) = 0;

private:
    std::atomic_flag busy_;
    DWORD failure_ = 0;
    std::string limit_; ///< which one the message exceeds; empty when that is not why it failed
};

/// Makes a handle of a message; `closeMessage` ends it.
void* addMessage(std::shared_ptr<Message> message);
/// The message behind a handle; ApiError(ERROR_INVALID_HANDLE) for one that is not ours.
std::shared_ptr<Message> findMessage(void* handle);
void closeMessage(void* handle);

/// What a CMSG_STREAM_INFO asks for: the pieces of the output, as they are there.
class StreamOutput {
public:
    explicit StreamOutput(const CMSG_STREAM_INFO& info) noexcept : info_(info) {}

    /// Hands `piece` over in parts of 32-bit size. ApiError(CRYPT_E_MSG_ERROR) when the callback answers FALSE.
    void write(ByteView piece, bool final = false) const;
    [[nodiscard]] DWORD contentSize() const noexcept { return info_.cbContent; }

private:
    CMSG_STREAM_INFO info_;
};

} // namespace klunortredi::csp
