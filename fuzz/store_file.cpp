// Files of certificate stores that anybody may have written to: what is read is written and read again. Built with
// libFuzzer, and replayed by a test.

#include "stores/store_file.hpp"
#include "core/error.hpp"
#include "require.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace {

using klunortredi::csp::Certificate;
namespace csp = klunortredi::csp;

/// The file of what a file holds; nothing for a certificate that does not decode.
std::optional<std::string> rewritten(const csp::StoreFile& file) {
    try {
        return csp::formatStoreFile(Certificate(csp::Bytes(file.der)), file.properties);
    } catch (const csp::ApiError&) {
        return std::nullopt;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto file = csp::parseStoreFile({reinterpret_cast<const char*>(data), size});
    const auto first = file ? rewritten(*file) : std::nullopt;
    if (!first) {
        return 0;
    }
    const auto again = csp::parseStoreFile(*first);
    require(again && again->der == file->der, "the certificate of a written file is read again");
    require(rewritten(*again) == first, "writing is stable");
    return 0;
}
