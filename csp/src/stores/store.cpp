#include "stores/store.hpp"

#include "core/immortal.hpp"

namespace klunortredi::csp {

namespace {

using StoreTable = HandleTable<OpenStore, HandleKind::Store>;

StoreTable& stores() {
    // Never destroyed: a host's static objects may close their stores after ours are gone.
    static Immortal<StoreTable> table(capi::ERROR_INVALID_HANDLE);
    return *table;
}

unsigned long number(void* handle) noexcept {
    return reinterpret_cast<unsigned long>(handle); // NOLINT(cppcoreguidelines-pro-type-reinterpret-cast)
}

} // namespace

Store& OpenStore::writable() const {
    if (readOnly_) {
        fail(capi::ERROR_ACCESS_DENIED);
    }
    return *store_;
}

void* addStore(std::shared_ptr<Store> store, bool readOnly) {
    const auto open = std::make_shared<OpenStore>(std::move(store), readOnly);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast,performance-no-int-to-ptr)
    open->handle = reinterpret_cast<void*>(stores().add(open));
    return open->handle;
}

std::shared_ptr<OpenStore> openStore(void* handle) {
    return stores().get(number(handle));
}

std::shared_ptr<OpenStore> closeStore(void* handle) {
    return stores().remove(number(handle));
}

} // namespace klunortredi::csp
