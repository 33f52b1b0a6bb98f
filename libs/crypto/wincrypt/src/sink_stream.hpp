#pragma once

#include "capi/types.h"
#include "crypto/wincrypt/output_sink.hpp"

#include <exception>

namespace orvik::plugin::wincrypt {

/// A caller's sink as the output of a streaming message. Stays where it was made: the message keeps its address.
class SinkStream {
public:
    explicit SinkStream(OutputSink sink);
    SinkStream(const SinkStream&) = delete;
    SinkStream& operator=(const SinkStream&) = delete;
    ~SinkStream() = default;

    /// False: the caller gave no sink.
    explicit operator bool() const { return static_cast<bool>(sink_); }
    /// Lets the message that `stream` describes write into the sink.
    void connect(CMSG_STREAM_INFO& stream);
    /// Throws what the sink threw, if it did: to be called when the service refused an update.
    void rethrowFailure();

private:
    static BOOL passOn(const void* stream, BYTE* data, DWORD size, BOOL final);

    OutputSink sink_;
    std::exception_ptr failure_;
};

} // namespace orvik::plugin::wincrypt
