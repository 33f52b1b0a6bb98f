#include "decoding_message.hpp"

#include "capi/constants.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"

#include <ios>
#include <istream>
#include <ostream>
#include <streambuf>
#include <string>

namespace orvik::plugin::wincrypt {

namespace internal {
namespace {

/// Passes everything on to the hook, if there is one, and keeps nothing: the content may be larger than memory.
class ContentBuffer : public std::streambuf {
public:
    explicit ContentBuffer(const tools::VerifyHooks& hooks) : hooks_(hooks) {}

protected:
    int_type overflow(int_type octet) override {
        const char one = traits_type::to_char_type(octet);
        return xsputn(&one, 1) == 1 ? traits_type::not_eof(octet) : traits_type::eof();
    }
    std::streamsize xsputn(const char* octets, std::streamsize count) override {
        const bool taken = !hooks_.content || hooks_.content(reinterpret_cast<const unsigned char*>(octets),
                                                             static_cast<std::size_t>(count));
        return taken ? count : 0;
    }

private:
    const tools::VerifyHooks& hooks_;
};

BOOL writeContent(const void* stream, BYTE* octets, DWORD count, BOOL /*final*/) {
    auto& out = *static_cast<std::ostream*>(const_cast<void*>(stream));
    out.write(reinterpret_cast<const char*>(octets), static_cast<std::streamsize>(count));
    return out.fail() ? 0 : 1;
}

} // namespace
} // namespace internal

class DecodingMessage::Output {
public:
    explicit Output(const tools::VerifyHooks& hooks) : buffer_(hooks), stream_(&buffer_) {}
    [[nodiscard]] CMSG_STREAM_INFO* info() { return &info_; }

private:
    internal::ContentBuffer buffer_;
    std::ostream stream_;
    CMSG_STREAM_INFO info_{capi::CMSG_INDEFINITE_LENGTH, internal::writeContent, &stream_};
};

DecodingMessage::DecodingMessage(bool detached, const tools::VerifyHooks& hooks)
    : output_(std::make_unique<Output>(hooks)) {
    *message_.put() = CryptMsgOpenToDecode(capi::X509_AND_PKCS_7, detached ? capi::CMSG_DETACHED_FLAG : 0, 0, 0,
                                           nullptr, output_->info());
    if (!message_) {
        raise(crypto::exception::SystemException(), {"tools", "verify"});
    }
}

DecodingMessage::~DecodingMessage() = default;

void DecodingMessage::feed(std::istream& in, const char* name) const {
    tools::read(message_.get(), in);
    if (in.bad()) {
        throw std::ios_base::failure(std::string("the ") + name + " cannot be read");
    }
}

void* DecodingMessage::get() const {
    return message_.get();
}

} // namespace orvik::plugin::wincrypt
