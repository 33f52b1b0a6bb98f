#pragma once

#include "orvik/plugin/converter.hpp"

#include <boost/utility/string_view.hpp>

#include <stdexcept>
#include <string>

namespace orvik::plugin::wincrypt {

/// What `convert` returns; the empty value of its type for text that has no conversion. For texts that a certificate
/// brings along: a malformed one is as good as none.
template <class Convert>
auto orEmpty(Convert convert) -> decltype(convert()) {
    try {
        return convert();
    } catch (const std::range_error&) {
        return {};
    }
}

/// UTF-8 of a wide text; empty for one that is no Unicode.
inline std::string utf8OrEmpty(boost::wstring_view text) {
    return orEmpty([&] { return plugin::converter::utf16_to_utf8(text); });
}

} // namespace orvik::plugin::wincrypt
