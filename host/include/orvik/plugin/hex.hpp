#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/utility/string_view.hpp>

#include <string>

/// Hexadecimal text.
namespace orvik::plugin::hex {

/// Lower case.
ORVIK_EXPORT std::string encode(boost::string_view bytes);
/// Either case; throws boost::algorithm::hex_decode_error (a std::exception) for other text.
ORVIK_EXPORT std::string decode(boost::string_view text);

} // namespace orvik::plugin::hex
