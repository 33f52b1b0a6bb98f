// Provider contexts of the other kind, CNG. This platform has none, so the two questions for it are answered here: what
// this program defines comes before what the libraries define.

#include "binding.hpp"

#include "crypto/wincrypt/handles.hpp"
#include "crypto/wincrypt/tools.hpp"
#include "orvik/plugin/crypto/tools.hpp"

namespace wincrypt_binding {
namespace {

bool providersAreCng = false; ///< by name
int handlesAsked = 0;
bool handlesAreCng = false;

} // namespace
} // namespace wincrypt_binding

namespace orvik::plugin::crypto::tools {
bool isCNG(boost::wstring_view) {
    return wincrypt_binding::providersAreCng;
}
} // namespace orvik::plugin::crypto::tools

namespace orvik::plugin::wincrypt::tools {
bool isCNG(unsigned long) {
    ++wincrypt_binding::handlesAsked;
    return wincrypt_binding::handlesAreCng;
}
} // namespace orvik::plugin::wincrypt::tools

namespace wincrypt_binding {
namespace {

using wincrypt::HCRYPTPROV;

constexpr auto gost256 = orvik::plugin::crypto::IProvider::gost2012_256;

class CngContext : public DoubleFixture {
protected:
    CngContext() { service().providers[""] = {cryptoProProvider()}; }
};

TEST_F(CngContext, IsNotOpenedByNameAndCallsNothing) {
    providersAreCng = true;
    handlesAreCng = true;
    unsigned error = 12345;
    {
        const HCRYPTPROV context(L"box", cryptoProName, gost256, 0, &error);
        EXPECT_EQ(context.get(), 0U);
    }
    EXPECT_EQ(error, 12345U);
    EXPECT_THAT(service().calls(), testing::IsEmpty());
}

TEST_F(CngContext, IsNotReleasedWhenAdopted) {
    handlesAreCng = true;
    { const HCRYPTPROV context(0x1234UL); }
    EXPECT_EQ(handlesAsked, 1);
    EXPECT_THAT(service().calls(), testing::IsEmpty());
}

TEST_F(CngContext, IsNotLookedForInAContextAcquiredByName) {
    handlesAreCng = true;
    { const HCRYPTPROV context(L"", cryptoProName, gost256, 0xF0000000, nullptr); }
    EXPECT_EQ(handlesAsked, 0);
    EXPECT_EQ(service().count("CryptReleaseContext"), 1U);
}

} // namespace
} // namespace wincrypt_binding
