#pragma once

/// CRYPT_FIRST and CRYPT_NEXT over a list of results.

#include "capi/types.h"
#include "core/bytes.hpp"

#include <functional>
#include <mutex>
#include <vector>

namespace klunortredi::csp {

/// A walk over a list that is taken at CRYPT_FIRST. Thread-safe.
class Enumeration {
public:
    using List = std::function<std::vector<Bytes>()>;

    /// Gives one item by the two-call protocol; `list` is asked at CRYPT_FIRST (and when nobody asked before). A size
    /// query tells the size of the largest item, so that one buffer serves for all. Only an item that was given is
    /// passed over: after ERROR_MORE_DATA the same one comes again. ERROR_NO_MORE_ITEMS at the end.
    void give(bool first, const List& list, void* buffer, DWORD* size);

private:
    std::mutex mutex_;
    bool started_ = false;
    std::vector<Bytes> items_;
    std::size_t next_ = 0;
};

} // namespace klunortredi::csp
