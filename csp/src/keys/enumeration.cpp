#include "keys/enumeration.hpp"

#include "core/error.hpp"
#include "core/output.hpp"

#include <algorithm>

namespace klunortredi::csp {

void Enumeration::give(bool first, const List& list, void* buffer, DWORD* size) {
    if (size == nullptr) {
        fail(capi::ERROR_INVALID_PARAMETER);
    }
    const std::lock_guard lock(mutex_);
    if (first || !started_) {
        items_ = list();
        next_ = 0;
        started_ = true;
    }
    if (next_ >= items_.size()) {
        fail(capi::ERROR_NO_MORE_ITEMS);
    }
    if (buffer == nullptr) {
        const auto largest = std::ranges::max_element(items_, {}, &Bytes::size);
        *size = static_cast<DWORD>(largest->size());
        return;
    }
    csp::give(items_[next_], buffer, size);
    ++next_;
}

} // namespace klunortredi::csp
