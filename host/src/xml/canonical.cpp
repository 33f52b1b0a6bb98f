#include "canonical.hpp"

#include "libxml.hpp"
#include "limits.hpp"
#include "refusal.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace orvik::plugin::xml::internal {

namespace {

constexpr std::size_t bufferOctets = 16384;

std::string_view view(const xmlChar* text) {
    return text == nullptr ? std::string_view() : reinterpret_cast<const char*>(text);
}

/// A prefix ("" for the default) bound to a namespace ("" for none).
struct Binding {
    std::string_view prefix;
    std::string_view uri;
};

bool isXmlAttribute(const xmlAttr* attribute) {
    return attribute->ns != nullptr && view(attribute->ns->prefix) == "xml";
}

bool byName(const xmlAttr* a, const xmlAttr* b) {
    const auto uri = [](const xmlAttr* attribute) {
        return attribute->ns == nullptr ? std::string_view() : view(attribute->ns->href);
    };
    return std::pair(uri(a), view(a->name)) < std::pair(uri(b), view(b->name));
}

enum class Place { text, attribute };

class Writer {
public:
    Writer(const CanonicalForm& form, const NodeFilter& leftOut, CanonicalBudget& budget, const CanonicalSink& sink)
        : form_(form), leftOut_(leftOut), budget_(budget), sink_(sink) {}

    void document(const xmlDoc* document) {
        bool afterRoot = false;
        for (const xmlNode* node = document->children; node != nullptr; node = node->next) {
            if (node->type == XML_ELEMENT_NODE) {
                subtree(node);
                afterRoot = true;
            } else if (node->type == XML_PI_NODE) {
                put(afterRoot ? "\n" : "");
                instruction(node);
                put(afterRoot ? "" : "\n");
            }
        }
        flush();
    }

    void apex(const xmlNode* node) {
        subtree(node);
        flush();
    }

private:
    [[nodiscard]] bool exclusive() const { return form_.method == CanonicalMethod::exclusive; }

    [[nodiscard]] bool isInclusivePrefix(std::string_view prefix) const {
        return !exclusive() || std::find(form_.inclusivePrefixes.begin(), form_.inclusivePrefixes.end(), prefix) !=
                                   form_.inclusivePrefixes.end();
    }

    /// The apex: it takes over what its ancestors say.
    void subtree(const xmlNode* node) {
        if (leftOut_ && leftOut_(node)) {
            return;
        }
        std::vector<Binding> inherited;
        std::vector<const xmlAttr*> attributes;
        for (const xmlNode* at = node; at != nullptr && at->type == XML_ELEMENT_NODE; at = at->parent) {
            addDeclared(at, inherited);
            if (at != node && !exclusive()) {
                inherit(at, node, attributes);
            }
        }
        element(node, std::move(inherited), std::move(attributes));
    }

    /// The xml: attributes of an ancestor that the apex inherits.
    void inherit(const xmlNode* ancestor, const xmlNode* apex, std::vector<const xmlAttr*>& attributes) {
        for (const xmlAttr* attribute = ancestor->properties; attribute != nullptr; attribute = attribute->next) {
            step(attributes.size() + limits::attributesPerElement);
            if (!isXmlAttribute(attribute)) {
                continue;
            }
            const auto name = view(attribute->name);
            if (form_.method == CanonicalMethod::inclusive11 && name == "base") {
                unknown("xml:base above a signed part is not supported with Canonical XML 1.1");
            }
            const bool inherits = form_.method == CanonicalMethod::inclusive10 || name == "lang" || name == "space";
            const auto same = [&](const xmlAttr* nearer) { return view(nearer->name) == name; };
            bool known = std::any_of(attributes.begin(), attributes.end(), same);
            for (const xmlAttr* own = apex->properties; own != nullptr; own = own->next) {
                known = known || (isXmlAttribute(own) && same(own));
            }
            if (inherits && !known) {
                attributes.push_back(attribute);
            }
        }
    }

    /// Adds the declarations of an element for prefixes that are not there yet.
    void addDeclared(const xmlNode* node, std::vector<Binding>& bindings) {
        for (const xmlNs* ns = node->nsDef; ns != nullptr; ns = ns->next) {
            const Binding binding{view(ns->prefix), view(ns->href)};
            step(bindings.size());
            if (binding.prefix != "xml" && isInclusivePrefix(binding.prefix) &&
                std::none_of(bindings.begin(), bindings.end(),
                             [&](const Binding& known) { return known.prefix == binding.prefix; })) {
                bindings.push_back(binding);
            }
        }
    }

    /// What the names of an element and of its attributes use.
    void addUsed(const xmlNode* node, std::vector<Binding>& bindings) {
        const auto add = [&](const xmlNs* ns) {
            step(bindings.size());
            const Binding used = ns == nullptr ? Binding{} : Binding{view(ns->prefix), view(ns->href)};
            if (used.prefix != "xml" && std::none_of(bindings.begin(), bindings.end(), [&](const Binding& known) {
                    return known.prefix == used.prefix;
                })) {
                bindings.push_back(used);
            }
        };
        add(node->ns);
        for (const xmlAttr* attribute = node->properties; attribute != nullptr; attribute = attribute->next) {
            if (attribute->ns != nullptr) {
                add(attribute->ns);
            }
        }
    }

    [[nodiscard]] bool isRendered(const Binding& binding) {
        step(rendered_.size());
        const auto last = std::find_if(rendered_.rbegin(), rendered_.rend(),
                                       [&](const Binding& known) { return known.prefix == binding.prefix; });
        return last == rendered_.rend() ? binding.uri.empty() : last->uri == binding.uri;
    }

    void element(const xmlNode* node, std::vector<Binding> bindings, std::vector<const xmlAttr*> attributes) {
        if (exclusive()) {
            addUsed(node, bindings);
        }
        bindings.erase(
            std::remove_if(bindings.begin(), bindings.end(), [this](const Binding& b) { return isRendered(b); }),
            bindings.end());
        std::sort(bindings.begin(), bindings.end(),
                  [](const Binding& a, const Binding& b) { return a.prefix < b.prefix; });
        const std::size_t outer = rendered_.size();
        rendered_.insert(rendered_.end(), bindings.begin(), bindings.end());

        put("<");
        name(node->ns, node->name);
        for (const Binding& binding : bindings) {
            put(binding.prefix.empty() ? " xmlns" : " xmlns:");
            put(binding.prefix);
            value(binding.uri);
        }
        putAttributes(node, std::move(attributes));
        put(">");
        for (const xmlNode* child = node->children; child != nullptr; child = child->next) {
            content(child);
        }
        put("</");
        name(node->ns, node->name);
        put(">");
        rendered_.resize(outer);
    }

    void putAttributes(const xmlNode* node, std::vector<const xmlAttr*> attributes) {
        for (const xmlAttr* attribute = node->properties; attribute != nullptr; attribute = attribute->next) {
            attributes.push_back(attribute);
        }
        step(attributes.size());
        std::sort(attributes.begin(), attributes.end(), byName);
        for (const xmlAttr* attribute : attributes) {
            put(" ");
            name(attribute->ns, attribute->name);
            const TextPtr text(xmlNodeListGetString(attribute->doc, attribute->children, 1));
            value(view(text.get()));
        }
    }

    void content(const xmlNode* node) {
        step(1);
        switch (node->type) {
        case XML_ELEMENT_NODE:
            if (!leftOut_ || !leftOut_(node)) {
                std::vector<Binding> bindings;
                addDeclared(node, bindings);
                element(node, std::move(bindings), {});
            }
            break;
        case XML_TEXT_NODE:
        case XML_CDATA_SECTION_NODE:
            escaped(view(node->content), Place::text);
            break;
        case XML_PI_NODE:
            instruction(node);
            break;
        case XML_COMMENT_NODE:
            break;
        default:
            unknown("the document holds an entity reference");
        }
    }

    void instruction(const xmlNode* node) {
        put("<?");
        put(view(node->name));
        const auto data = view(node->content);
        if (!data.empty()) {
            put(" ");
            for (std::size_t from = 0; from <= data.size();) {
                const auto at = std::min(data.find('\r', from), data.size());
                put(data.substr(from, at - from));
                put(at < data.size() ? "&#xD;" : "");
                from = at + 1;
            }
        }
        put("?>");
    }

    void name(const xmlNs* ns, const xmlChar* local) {
        if (ns != nullptr && ns->prefix != nullptr) {
            put(view(ns->prefix));
            put(":");
        }
        put(view(local));
    }

    void value(std::string_view text) {
        put("=\"");
        escaped(text, Place::attribute);
        put("\"");
    }

    static std::string_view reference(char c, Place place) {
        const bool attribute = place == Place::attribute;
        switch (c) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return attribute ? ">" : "&gt;";
        case '\r':
            return "&#xD;";
        case '"':
            return attribute ? "&quot;" : "\"";
        case '\t':
            return attribute ? "&#x9;" : "\t";
        default:
            return attribute ? "&#xA;" : "\n";
        }
    }

    void escaped(std::string_view text, Place place) {
        const char* const special = place == Place::text ? "&<>\r" : "&<\"\t\n\r";
        while (!text.empty()) {
            const auto at = std::min(text.find_first_of(special), text.size());
            put(text.substr(0, at));
            if (at == text.size()) {
                return;
            }
            put(reference(text[at], place));
            text.remove_prefix(at + 1);
        }
    }

    void put(std::string_view octets) {
        if (octets.size() > budget_.octets) {
            unknown("the signatures of the document cover more than is computed for one document");
        }
        budget_.octets -= octets.size();
        if (buffer_.size() + octets.size() > bufferOctets) {
            flush();
        }
        if (octets.size() > bufferOctets) {
            sink_(octets);
        } else {
            buffer_ += octets;
        }
    }

    void step(std::size_t count) {
        if (count > budget_.steps) {
            unknown("the signatures of the document need more work than is done for one document");
        }
        budget_.steps -= count;
    }

    void flush() {
        sink_(buffer_);
        buffer_.clear();
    }

    const CanonicalForm& form_;
    const NodeFilter& leftOut_;
    CanonicalBudget& budget_;
    const CanonicalSink& sink_;
    std::vector<Binding> rendered_; ///< by the open elements, innermost last
    std::string buffer_;
};

} // namespace

void canonicalize(const xmlDoc* document, const xmlNode* apex, const CanonicalForm& form, const NodeFilter& leftOut,
                  CanonicalBudget& budget, const CanonicalSink& sink) {
    Writer writer(form, leftOut, budget, sink);
    if (apex == nullptr) {
        writer.document(document);
    } else {
        writer.apex(apex);
    }
}

std::string serialized(xmlDocPtr document) {
    const SilentErrors silent;
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
