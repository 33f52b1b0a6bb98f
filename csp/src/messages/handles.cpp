#include "messages/handles.hpp"

#include "asn1/limit_error.hpp"
#include "capi/exceeded_limit.hpp"
#include "core/error.hpp"
#include "core/handle_table.hpp"
#include "core/immortal.hpp"
#include "core/output.hpp"

#include <algorithm>

namespace klunortredi::csp {

namespace {

using MessageTable = HandleTable<Message, HandleKind::Message>;

MessageTable& messages() {
    // Never destroyed: a host's static objects may close their messages after ours are gone.
    static Immortal<MessageTable> table(capi::ERROR_INVALID_HANDLE);
    return *table;
}

unsigned long number(void* handle) noexcept {
    return reinterpret_cast<unsigned long>(handle); // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
}

class Busy {
public:
    explicit Busy(std::atomic_flag& flag) : flag_(flag) {
        if (flag_.test_and_set(std::memory_order_acquire)) {
            fail(capi::ERROR_BUSY);
        }
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;
    ~Busy() { flag_.clear(std::memory_order_release); }

private:
    std::atomic_flag& flag_;
};

} // namespace

void Message::update(ByteView piece, bool final) {
    const Busy busy(busy_);
    if (failure_ != 0) {
        fail(failure_);
    }
    try {
        doUpdate(piece, final);
    } catch (const LimitError& error) {
        failure_ = error.code();
        limit_ = error.limit();
        throw;
    } catch (const ApiError& error) {
        failure_ = error.code();
        throw;
    } catch (...) { // out of memory, or an exception of the caller's own callback
        failure_ = capi::CRYPT_E_MSG_ERROR;
        throw;
    }
}

void Message::param(DWORD type, DWORD index, void* data, DWORD* size) {
    const Busy busy(busy_);
    if (type == capi::CMSG_EXCEEDED_LIMIT_PARAM && !limit_.empty()) {
        giveText(limit_, data, size);
        return;
    }
    if (failure_ != 0) {
        fail(failure_);
    }
    doParam(type, index, data, size);
}

void Message::control(DWORD type, const void* parameters) {
    const Busy busy(busy_);
    if (failure_ != 0) {
        fail(failure_);
    }
    doControl(type, parameters);
}

void* addMessage(std::shared_ptr<Message> message) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast,performance-no-int-to-ptr)
    return reinterpret_cast<void*>(messages().add(std::move(message)));
}

std::shared_ptr<Message> findMessage(void* handle) {
    return messages().get(number(handle));
}

void closeMessage(void* handle) {
    messages().remove(number(handle));
}

std::shared_ptr<CertificateCarrier> certificateCarrier(void* hMsg) {
    return findMessage(hMsg);
}

void StreamOutput::write(ByteView piece, bool final) const {
    constexpr std::size_t largestPart = 1U << 30U;
    do {
        const ByteView part = piece.first(std::min(piece.size(), largestPart));
        piece = piece.subspan(part.size());
        // The callback's type is not const-correct; it only reads.
        auto* const data = const_cast<BYTE*>(part.data()); // NOLINT(cppcoreguidelines-pro-type-const-cast)
        if (info_.pfnStreamOutput(info_.pvArg, data, static_cast<DWORD>(part.size()), final && piece.empty() ? 1 : 0) ==
            0) {
            fail(capi::CRYPT_E_MSG_ERROR);
        }
    } while (!piece.empty());
}

} // namespace klunortredi::csp
