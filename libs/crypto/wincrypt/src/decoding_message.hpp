#pragma once

/// An open message that streams its content to a hook.

#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools_verify.hpp"

#include <memory>

namespace orvik::plugin::wincrypt {

/// Owns a message opened to decode, and what its stream callback uses.
class DecodingMessage {
public:
    /// `hooks` must outlive the object; only `hooks.content` is used. Throws SystemException as of "tools", "verify".
    DecodingMessage(bool detached, const tools::VerifyHooks& hooks);
    DecodingMessage(const DecodingMessage&) = delete;
    DecodingMessage& operator=(const DecodingMessage&) = delete;
    ~DecodingMessage();

    /// The HCRYPTMSG; it stays this object's.
    [[nodiscard]] void* get() const;

private:
    class Output;
    std::unique_ptr<Output> output_;
    HCRYPTMSG message_;
};

} // namespace orvik::plugin::wincrypt
