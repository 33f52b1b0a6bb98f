#pragma once

#include <cstddef>
#include <string_view>

namespace orvik::plugin::xml::internal {

/// Counts what a document would make a parser build, over its octets alone and without keeping them, and refuses what
/// is over the bounds of limits.hpp, as well as any document type declaration. `text` is in an encoding that agrees
/// with ASCII. It is no judge of well-formedness: up to the first error that a parser would stop at, both see the same
/// markup. Throws CryptoException unknownFormat.
void scanDocument(std::string_view text);

} // namespace orvik::plugin::xml::internal
