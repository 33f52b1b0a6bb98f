#pragma once

/// Ownership of libxml2's objects, and its octets as text.

#include "xml/libxml_functions.hpp"

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

/// While one lives, libxml2 reports no error in this thread but to the caller: it never writes to standard error.
class SilentErrors {
public:
    SilentErrors() : handler_(*placeOfErrorHandler()), context_(*placeOfErrorContext()) {
        xmlSetStructuredErrorFunc(nullptr, [](void*, xmlErrorPtr) {});
    }
    SilentErrors(const SilentErrors&) = delete;
    SilentErrors& operator=(const SilentErrors&) = delete;
    ~SilentErrors() { xmlSetStructuredErrorFunc(context_, handler_); }

private:
    xmlStructuredErrorFunc handler_;
    void* context_;
};

inline const xmlChar* toXml(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

/// Empty for a null.
inline std::string fromXml(const xmlChar* text) {
    return text == nullptr ? std::string() : reinterpret_cast<const char*>(text);
}

} // namespace orvik::plugin::xml::internal
