#include "orvik/plugin/tools.hpp"

#include <boost/algorithm/string/predicate.hpp>

#include <locale>
#include <stdexcept>

namespace orvik::plugin::tools {

namespace {

constexpr boost::string_view blanks = " \t\r\n";

boost::string_view trimmed(boost::string_view text) {
    const auto first = text.find_first_not_of(blanks);
    return first == boost::string_view::npos ? boost::string_view()
                                             : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// Position of the first `separator` that neither stands between double quotes nor follows a backslash; npos when there
/// is none. A quote without a partner is an ordinary character.
std::size_t findSeparator(boost::string_view text, boost::string_view separator) {
    std::size_t i = 0;
    while (i < text.size()) {
        if (text[i] == '\\') {
            i += 2;
        } else if (const auto close = text[i] == '"' ? text.find('"', i + 1) : text.npos; close != text.npos) {
            i = close + 1;
        } else if (text.substr(i).starts_with(separator)) {
            return i;
        } else {
            ++i;
        }
    }
    return boost::string_view::npos;
}

/// Cuts the part before the first separator off `text`; all of it when there is none.
boost::string_view takePiece(boost::string_view& text, boost::string_view separator) {
    const auto at = findSeparator(text, separator);
    const auto piece = text.substr(0, at);
    text.remove_prefix(at == boost::string_view::npos ? text.size() : at + separator.size());
    return piece;
}

/// A locale that knows the case of every letter, whatever the application's is; the classic one where it is missing.
const std::locale& unicodeLocale() {
    static const std::locale locale = [] {
        try {
            return std::locale("C.UTF-8");
        } catch (const std::runtime_error&) {
            return std::locale::classic();
        }
    }();
    return locale;
}

} // namespace

std::vector<std::pair<std::string, std::string>> split(boost::string_view text, boost::string_view keySeparator,
                                                       boost::string_view pairSeparator) {
    std::vector<std::pair<std::string, std::string>> pairs;
    while (!text.empty()) {
        auto value = takePiece(text, pairSeparator);
        if (trimmed(value).empty()) {
            continue;
        }
        const auto key = takePiece(value, keySeparator);
        pairs.emplace_back(trimmed(key).to_string(), value.to_string());
    }
    return pairs;
}

bool icontains(boost::wstring_view text, boost::wstring_view part) {
    return boost::algorithm::icontains(text, part, unicodeLocale());
}

} // namespace orvik::plugin::tools
