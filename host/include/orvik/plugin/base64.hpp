#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/utility/string_view.hpp>

#include <cstddef>
#include <string>

/// Base64 (RFC 4648, section 4).
namespace orvik::plugin::base64 {

/// Without line breaks.
ORVIK_EXPORT std::string encode(boost::string_view bytes);
/// Empty when `text` is not Base64 (white space is allowed between characters).
ORVIK_EXPORT std::string decode(boost::string_view text);
/// Whether the first `count` characters (or all, when fewer) look like Base64. False for an empty text.
ORVIK_EXPORT bool likely(boost::string_view text, std::size_t count);

} // namespace orvik::plugin::base64
