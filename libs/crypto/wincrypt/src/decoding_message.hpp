#pragma once

/// An open message that streams its content to a hook.

#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools_verify.hpp"

#include <iosfwd>
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

    /// Feeds all octets of `in`; `name` says what they are. Throws SystemException where the service refuses them, and
    /// std::ios_base::failure where the stream breaks: its end is not known then, and a part of a content is not it.
    void feed(std::istream& in, const char* name) const;

    /// The HCRYPTMSG; it stays this object's.
    [[nodiscard]] void* get() const;

private:
    class Output;
    std::unique_ptr<Output> output_;
    HCRYPTMSG message_;
};

} // namespace orvik::plugin::wincrypt
