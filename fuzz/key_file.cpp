// PKCS#12 files from a stranger, whose password is "password" or who has none: reading, and what an import takes of
// them. Built with libFuzzer.

#include "failure.hpp"
#include "identity.hpp"
#include "openssl_setup.hpp"
#include "pfx_file.hpp"
#include "require.hpp"
#include "work_factor.hpp"

#include "core/error.hpp"

#include <cstdint>
#include <string_view>

namespace {

namespace admin = klunortredi::admin;

void import(const admin::PfxFile& file, admin::Password password) {
    admin::WorkBudget budget("cannot take the file");
    try {
        auto contents = file.open(password, budget);
        if (!contents) {
            return;
        }
        const std::size_t certificates = contents->certificates.size();
        const auto identity = admin::chooseIdentity(*std::move(contents), "1");
        require(identity.key.key != nullptr, "an identity has a key");
        require(identity.otherCertificates + (identity.certificate ? 1U : 0U) == certificates,
                "every certificate is the key's or another");
    } catch (const klunortredi::cli::Failure&) {  // NOLINT(bugprone-empty-catch): the answer to most files
    } catch (const klunortredi::csp::ApiError&) { // NOLINT(bugprone-empty-catch)
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const admin::OpensslSetup setup;
    const auto file = admin::PfxFile::parse({reinterpret_cast<const char*>(data), size});
    if (file) {
        import(*file, std::string_view("password"));
        import(*file, std::nullopt);
    }
    return 0;
}
