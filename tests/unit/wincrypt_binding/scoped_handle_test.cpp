// The owner of one handle, without any service.

#include "binding.hpp"

#include "crypto/wincrypt/scoped_handle.hpp"

#include <stdexcept>

namespace wincrypt_binding {
namespace {

using orvik::plugin::scoped_handle;
using Handle = scoped_handle<unsigned long>;

static_assert(!std::is_copy_constructible_v<Handle> && !std::is_copy_assignable_v<Handle>);
static_assert(std::has_virtual_destructor_v<Handle>);
static_assert(std::is_nothrow_destructible_v<Handle>);

class ScopedHandle : public DoubleFixture {
protected:
    std::function<void(unsigned long&)> count() {
        return [this](unsigned long& handle) { given.push_back(handle); };
    }
    std::vector<unsigned long> given; ///< what finalisers were called with
};

TEST_F(ScopedHandle, StartsAtZeroAndInitialises) {
    unsigned long before = 7;
    const Handle handle(
        [&](unsigned long& held) {
            before = held;
            held = 5;
        },
        count());
    EXPECT_EQ(before, 0U);
    EXPECT_EQ(handle.get(), 5U);
}

TEST_F(ScopedHandle, GivesBackOnce) {
    {
        const Handle handle([](unsigned long& held) { held = 5; }, count());
    }
    EXPECT_THAT(given, testing::ElementsAre(5U));
}

TEST_F(ScopedHandle, GivesNothingBackWhenEmpty) {
    { const Handle handle(nullptr, count()); }
    EXPECT_THAT(given, testing::IsEmpty());
}

TEST_F(ScopedHandle, LivesWithoutAFinaliser) {
    const Handle handle([](unsigned long& held) { held = 5; }, nullptr);
    EXPECT_TRUE(handle);
}

TEST_F(ScopedHandle, OwnsWhatItsOwnerStores) {
    {
        Handle handle(nullptr, count());
        *handle.put() = 5;
        *handle.put() = 6;
        EXPECT_THAT(given, testing::ElementsAre(5U));
    }
    EXPECT_THAT(given, testing::ElementsAre(5U, 6U));
}

TEST_F(ScopedHandle, GivesUpWhatIsDetached) {
    {
        Handle handle([](unsigned long& held) { held = 5; }, count());
        EXPECT_EQ(handle.detach(), 5U);
        EXPECT_FALSE(handle);
    }
    EXPECT_THAT(given, testing::IsEmpty());
}

TEST_F(ScopedHandle, LogsWhatItsFinaliserThrows) {
    {
        const Handle handle([](unsigned long& held) { held = 5; },
                            [](unsigned long&) { throw std::runtime_error("no way back"); });
    }
    ASSERT_EQ(log().size(), 1U);
    EXPECT_EQ(log().front().severity, Severity::warning);
    EXPECT_THAT(log().front().text, testing::StartsWith("finalize scoped_handle: "));
    EXPECT_THAT(log().front().text, testing::HasSubstr("no way back"));
}

TEST_F(ScopedHandle, LetsAnInitialisersExceptionOut) {
    EXPECT_THROW(Handle([](unsigned long&) { throw std::runtime_error("no way in"); }, count()), std::runtime_error);
    EXPECT_THAT(given, testing::IsEmpty());
}

} // namespace
} // namespace wincrypt_binding
