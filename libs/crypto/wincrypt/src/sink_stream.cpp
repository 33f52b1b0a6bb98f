#include "sink_stream.hpp"

#include <utility>

namespace orvik::plugin::wincrypt {

SinkStream::SinkStream(OutputSink sink) : sink_(std::move(sink)) {}

void SinkStream::connect(CMSG_STREAM_INFO& stream) {
    stream.pfnStreamOutput = passOn;
    stream.pvArg = this;
}

void SinkStream::rethrowFailure() {
    if (failure_) {
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
}

BOOL SinkStream::passOn(const void* stream, BYTE* data, DWORD size, BOOL /*final*/) {
    if (stream == nullptr) {
        return 0;
    }
    if (size == 0) {
        return 1;
    }
    auto& self = *static_cast<SinkStream*>(const_cast<void*>(stream));
    try {
        return self.sink_(data, size) ? 1 : 0;
    } catch (...) { // the service's frames lie in between: the exception is thrown again after them
        self.failure_ = std::current_exception();
        return 0;
    }
}

} // namespace orvik::plugin::wincrypt
