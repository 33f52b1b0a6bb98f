#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/utility/string_view.hpp>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace orvik::plugin::tools {

/// lower <= value <= upper.
constexpr bool check_bounds(std::size_t value, std::size_t lower, std::size_t upper) {
    return lower <= value && value <= upper;
}

/// Cuts "key=value;key=value" into pairs in order: at `pairSeparator`, then at the first `keySeparator` of each piece.
/// Blanks around keys are trimmed; empty pieces are left out; a piece without separator is a key with an empty value.
/// A separator inside double quotes, or after a backslash, belongs to the value.
ORVIK_EXPORT std::vector<std::pair<std::string, std::string>>
split(boost::string_view text, boost::string_view keySeparator, boost::string_view pairSeparator);

/// Whether `part` occurs in `text`, whatever the case.
ORVIK_EXPORT bool icontains(boost::wstring_view text, boost::wstring_view part);

} // namespace orvik::plugin::tools
