#pragma once

/// Adding elements to a document. All throw std::bad_alloc.

#include <libxml/tree.h>

#include <string>

namespace orvik::plugin::xml::internal {

/// A new last child in the namespace. `text` is UTF-8 and is escaped as needed; no text node when it is empty.
xmlNodePtr addChild(xmlNodePtr parent, const char* name, xmlNsPtr ns, const std::string& text = {});

/// The same in the parent's own namespace.
xmlNodePtr addChild(xmlNodePtr parent, const char* name, const std::string& text = {});

/// Sets an attribute without namespace, which the element must not have yet.
void addAttribute(xmlNodePtr element, const char* name, const std::string& value);

/// A namespace declaration of the element; `prefix` is null for the default.
xmlNsPtr addNamespace(xmlNodePtr element, const char* uri, const char* prefix);

/// An element with the attribute Algorithm, in the namespace of XML-DSig.
xmlNodePtr addMethod(xmlNodePtr parent, const char* name, xmlNsPtr dsig, const std::string& uri);

/// An identifier that no document has by chance: the text, followed by 128 random bits.
std::string newIdentifier(const char* start);

} // namespace orvik::plugin::xml::internal
