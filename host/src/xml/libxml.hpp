#pragma once

/// Ownership of libxml2's objects, and its octets as text.

#include <libxml/tree.h>

#include <memory>
#include <string>

namespace orvik::plugin::xml::internal {

struct DocRelease {
    void operator()(xmlDoc* doc) const noexcept { xmlFreeDoc(doc); }
};
using DocPtr = std::unique_ptr<xmlDoc, DocRelease>;

struct TextRelease {
    void operator()(xmlChar* text) const noexcept { xmlFree(text); }
};
using TextPtr = std::unique_ptr<xmlChar, TextRelease>;

inline const xmlChar* toXml(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

/// Empty for a null.
inline std::string fromXml(const xmlChar* text) {
    return text == nullptr ? std::string() : reinterpret_cast<const char*>(text);
}

} // namespace orvik::plugin::xml::internal
