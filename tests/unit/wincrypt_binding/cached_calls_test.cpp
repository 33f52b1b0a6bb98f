// What a call costs once its entry point is known. The loader is compiled into this program too, so that the linker can
// lead its dlsym to a function here; allocations are counted in the whole process.

#include "binding.hpp"
#include "wincrypt_loader.hpp"

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace wincrypt_binding {
namespace {

constinit std::vector<std::string>* record = nullptr;
std::atomic<std::size_t> allocations{0};

} // namespace
} // namespace wincrypt_binding

extern "C" void* __real_dlsym(void* library, const char* name);
extern "C" void* __wrap_dlsym(void* library, const char* name);
// AddressSanitizer is linked into the program too, and looks up what it replaces before anything can be checked or
// allocated.
#ifdef KLUNORTREDI_ADDRESS_SANITIZED
__attribute__((no_sanitize("address", "undefined")))
#endif
extern "C" void*
__wrap_dlsym(void* library, const char* name) {
    if (wincrypt_binding::record != nullptr) {
        wincrypt_binding::record->emplace_back(name);
    }
    return __real_dlsym(library, name);
}

// Not inlined, or the compiler takes new and free() for a mismatched pair.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++wincrypt_binding::allocations;
    if (void* const block = std::malloc(size != 0 ? size : 1)) {
        return block;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    ++wincrypt_binding::allocations;
    return std::malloc(size != 0 ? size : 1);
}

[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}

[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace wincrypt_binding {
namespace {

using wincrypt::WincryptLoader;

template <class R, class... A>
void callWithZeros(const std::function<R(A...)>& call) {
    call(A{}...);
}

/// Calls every entry point once and tells what was looked up for it.
std::vector<std::string> lookedUpByAll(WincryptLoader& loader) {
    std::vector<std::string> lookedUp;
    record = &lookedUp;
#define CALL(reach, qualifier, result, member, pointer, symbol, parameters, arguments)                                 \
    service().on.member = [](auto...) { return wincrypt::absent<result>(); };                                          \
    callWithZeros(std::function<result parameters>([&] parameters { return loader.member arguments; }));
    KLUNORTREDI_ENTRY_POINTS(CALL)
    record = nullptr;
    return lookedUp;
}

class CachedCalls : public DoubleFixture {};

TEST_F(CachedCalls, LookNothingUp) {
#define SYMBOL(reach, qualifier, result, member, pointer, symbol, ...) symbol,
    const std::vector<std::string> symbols{KLUNORTREDI_ENTRY_POINTS(SYMBOL)};
    WincryptLoader loader({service_double::libraryPath("full")});
    EXPECT_EQ(lookedUpByAll(loader), symbols);
    EXPECT_THAT(lookedUpByAll(loader), testing::IsEmpty());
}

template <class Action>
std::size_t allocationsOf(Action action) {
    service().clearCalls();
    const std::size_t before = allocations;
    action();
    return allocations - before;
}

/// The double allocates for its record of the call; the way there must add nothing.
TEST_F(CachedCalls, AllocateNothingOfTheirOwn) {
    service().on.CertDeleteCertificateFromStore = [](PCCERT_CONTEXT) { return 1; };
    wincrypt::CertDeleteCertificateFromStore(nullptr);
    void* const library = dlopen(service_double::libraryPath("full").c_str(), RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);
    const auto direct = reinterpret_cast<decltype(&wincrypt::CertDeleteCertificateFromStore)>(
        dlsym(library, "CertDeleteCertificateFromStore"));
    ASSERT_NE(direct, nullptr);
    const std::size_t inTheService = allocationsOf([&] { direct(nullptr); });
    EXPECT_GT(inTheService, 0U) << "nothing is counted";
    EXPECT_EQ(allocationsOf([] { wincrypt::CertDeleteCertificateFromStore(nullptr); }), inTheService);
    dlclose(library);
}

} // namespace
} // namespace wincrypt_binding
