#include "canonical.hpp"

#include "libxml.hpp"

#include <libxml/c14n.h>
#include <libxml/xmlIO.h>

#include <memory>
#include <new>
#include <stdexcept>

namespace orvik::plugin::xml::internal {

namespace {

struct OutputRelease {
    void operator()(xmlOutputBuffer* output) const noexcept { xmlOutputBufferClose(output); }
};

/// Whether the node lies in the subtree at `root`; all do when there is none. A namespace declaration is no tree node,
/// so its place is told by its parent.
int isVisible(void* root, xmlNodePtr node, xmlNodePtr parent) {
    const bool declaration = node != nullptr && node->type == XML_NAMESPACE_DECL;
    for (const xmlNode* at = declaration ? parent : node; at != nullptr; at = at->parent) {
        if (root == nullptr || at == root) {
            return 1;
        }
    }
    return 0;
}

} // namespace

std::string canonical(xmlDocPtr document, xmlNodePtr root) {
    const std::unique_ptr<xmlOutputBuffer, OutputRelease> output(xmlAllocOutputBuffer(nullptr));
    if (!output) {
        throw std::bad_alloc();
    }
    if (xmlC14NExecute(document, isVisible, root, XML_C14N_EXCLUSIVE_1_0, nullptr, 0, output.get()) < 0) {
        throw std::runtime_error("the XML document has no canonical form");
    }
    return {reinterpret_cast<const char*>(xmlOutputBufferGetContent(output.get())),
            xmlOutputBufferGetSize(output.get())};
}

std::string serialized(xmlDocPtr document) {
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpMemory(document, &text, &size);
    const TextPtr owned(text);
    if (!owned) {
        throw std::runtime_error("the XML document cannot be written");
    }
    return {reinterpret_cast<const char*>(text), static_cast<std::size_t>(size)};
}

} // namespace orvik::plugin::xml::internal
