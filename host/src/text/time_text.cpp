#include "time_text.hpp"

#include "orvik/plugin/converter.hpp"

#include <array>
#include <ctime>
#include <locale.h>

namespace orvik::plugin::internal {

namespace {

locale_t cLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
}

} // namespace

ParsedTime parseTime(const std::string& text, const std::string& format) {
    std::tm fields{};
    const char* end = strptime_l(text.c_str(), format.c_str(), &fields, cLocale());
    if (end == nullptr) {
        return {};
    }
    const auto length = static_cast<std::size_t>(end - text.c_str());
    const std::time_t seconds = timegm(&fields); // also carries over days and seconds that do not exist
    std::array<char, 256> canonical{};
    const std::size_t size = strftime_l(canonical.data(), canonical.size(), format.c_str(), &fields, cLocale());
    if (text.compare(0, length, canonical.data(), size) != 0) {
        return {};
    }
    return {converter::to_ptime(seconds), length};
}

} // namespace orvik::plugin::internal
