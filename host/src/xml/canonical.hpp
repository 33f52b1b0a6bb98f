#pragma once

#include <libxml/tree.h>

#include <string>

namespace orvik::plugin::xml::internal {

/// The exclusive canonical form (RFC 3741), without comments, of the document or of the subtree at `root`. Throws
/// std::runtime_error when the document has none.
std::string canonical(xmlDocPtr document, xmlNodePtr root = nullptr);

/// The document as text in its own encoding.
std::string serialized(xmlDocPtr document);

} // namespace orvik::plugin::xml::internal
