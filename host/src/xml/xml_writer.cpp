#include "xml_writer.hpp"

#include "libxml.hpp"
#include "orvik/plugin/hex.hpp"

#include <openssl/rand.h>

#include <new>
#include <stdexcept>

namespace orvik::plugin::xml::internal {

namespace {

constexpr std::size_t identifierOctets = 16;

template <class T>
T* required(T* made) {
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

} // namespace

xmlNodePtr addChild(xmlNodePtr parent, const char* name, xmlNsPtr ns, const std::string& text) {
    return required(xmlNewTextChild(parent, ns, toXml(name), text.empty() ? nullptr : toXml(text.c_str())));
}

xmlNodePtr addChild(xmlNodePtr parent, const char* name, const std::string& text) {
    return addChild(parent, name, parent->ns, text);
}

void addAttribute(xmlNodePtr element, const char* name, const std::string& value) {
    required(xmlNewProp(element, toXml(name), toXml(value.c_str())));
}

xmlNsPtr addNamespace(xmlNodePtr element, const char* uri, const char* prefix) {
    return required(xmlNewNs(element, toXml(uri), prefix == nullptr ? nullptr : toXml(prefix)));
}

xmlNodePtr addMethod(xmlNodePtr parent, const char* name, xmlNsPtr dsig, const std::string& uri) {
    const xmlNodePtr child = addChild(parent, name, dsig);
    addAttribute(child, "Algorithm", uri);
    return child;
}

std::string newIdentifier(const char* start) {
    std::string octets(identifierOctets, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(octets.data()), static_cast<int>(octets.size())) != 1) {
        throw std::runtime_error("no random numbers");
    }
    return start + hex::encode(octets);
}

} // namespace orvik::plugin::xml::internal
