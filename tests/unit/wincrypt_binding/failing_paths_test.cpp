// A service whose place cannot even be told. The question for it is answered here: what this program defines comes
// before what the libraries define.

#include "binding.hpp"

#include "orvik/plugin/path_registry.hpp"

#include <stdexcept>

namespace orvik::plugin {
boost::filesystem::path PathRegistry::vipNetResourceFile() {
    throw std::runtime_error("no path");
}
} // namespace orvik::plugin

namespace wincrypt_binding {
namespace {

/// The service in the other slot is not gone on to.
class FailingPaths : public DoubleFixture {};

TEST_F(FailingPaths, AreNoServiceToAForwarder) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(thrownBy<CryptoException>([] { wincrypt::CryptGenRandom(1, 0, nullptr); }), noServiceInstalled);
    }
    EXPECT_THAT(service().calls(), testing::IsEmpty());
}

TEST_F(FailingPaths, LeaveNoLastError) {
    service().on.GetLastError = [] { return DWORD{7}; };
    EXPECT_EQ(wincrypt::GetLastErrorEx(), 0U);
}

} // namespace
} // namespace wincrypt_binding
