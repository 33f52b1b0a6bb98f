#pragma once

#include <cstddef>
#include <functional>

namespace orvik::plugin::wincrypt {

/// Takes the output of a streaming operation piece by piece, so that it need not fit into memory.
///
/// Each call gets `size` octets (at least 1) at `data`, which are valid during the call only. The pieces, in the order
/// of the calls, are the whole output. Their sizes have no meaning.
///
/// Returns true to go on. With false, or an exception, the operation fails: false is reported as the service's refusal
/// (SystemException), an exception reaches the caller of update() or finalize() as it was thrown. No call follows
/// either.
///
/// The sink is called during update() and finalize(), on the thread that calls them, and must not use the handler.
/// What it has taken before the operation succeeded is not a result: the caller drops it when the operation fails, and
/// when finalize() returns false and is not repeated.
using OutputSink = std::function<bool(const unsigned char* data, std::size_t size)>;

} // namespace orvik::plugin::wincrypt
