#include "scan.hpp"

#include "limits.hpp"
#include "refusal.hpp"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <vector>

namespace orvik::plugin::xml::internal {

namespace {

constexpr std::string_view blanks = " \t\r\n";

[[noreturn]] void tooMuch(const std::string& what, std::size_t limit) {
    refuseDocument("the XML document has more " + what + " than are read here (" + std::to_string(limit) + ")");
}

void require(std::size_t count, std::size_t limit, const char* what) {
    if (count > limit) {
        tooMuch(what, limit);
    }
}

/// Walks over markup: tags are looked into, everything else is passed by.
class Scan {
public:
    explicit Scan(std::string_view text) : rest_(text) {
        spend(text.size() + text.size() / 2); // of text, whose buffers grow ahead of it
    }

    void run() {
        while (!rest_.empty()) {
            const auto markup = std::min(rest_.find('<'), rest_.size());
            if (markup > 0) {
                spend(limits::textCost);
            }
            rest_.remove_prefix(markup);
            if (!rest_.empty()) {
                takeMarkup();
            }
        }
    }

private:
    void takeMarkup() {
        if (rest_.starts_with("<!--")) {
            pass("-->", 4);
        } else if (rest_.starts_with("<![CDATA[")) {
            pass("]]>", 9);
            if (rest_.starts_with("<![CDATA[")) { // one text to a canonical form and to some readers, two to others
                refuseDocument("the XML document has two CDATA sections side by side, which readers take differently");
            }
        } else if (rest_.starts_with("<?")) {
            pass("?>", 2);
        } else if (rest_.starts_with("<!")) {
            refuseDocument("the XML document has a document type declaration, which can change what readers see");
        } else if (rest_.starts_with("</")) {
            takeEnd();
        } else {
            takeStart();
        }
    }

    /// Passes by a node without structure.
    void pass(std::string_view end, std::size_t from) {
        spend(limits::elementCost);
        skipTo(end, from);
    }

    void skipTo(std::string_view end, std::size_t from) {
        const auto at = rest_.find(end, from);
        rest_.remove_prefix(at == std::string_view::npos ? rest_.size() : at + end.size());
    }

    void takeEnd() {
        skipTo(">", 2);
        if (!namespaces_.empty()) {
            inScope_ -= namespaces_.back();
            namespaces_.pop_back();
        }
    }

    void takeStart() {
        spend(limits::elementCost);
        rest_.remove_prefix(1);
        takeName();
        std::size_t attributes = 0;
        std::size_t declared = 0;
        while (takeAttribute(declared)) {
            require(++attributes, limits::attributesPerElement, "attributes in an element");
        }
        require(inScope_ + declared, limits::namespacesInScope, "namespaces");
        const bool empty = rest_.starts_with("/>");
        if (!empty) {
            inScope_ += declared;
            namespaces_.push_back(declared);
            require(namespaces_.size(), limits::depth, "levels of elements");
        }
        rest_.remove_prefix(std::min<std::size_t>(empty ? 2 : 1, rest_.size()));
    }

    std::string_view takeName() {
        const auto name = rest_.substr(0, std::min(rest_.find_first_of(" \t\r\n=/>"), rest_.size()));
        require(name.size(), limits::nameOctets, "octets in a name");
        note(name);
        rest_.remove_prefix(name.size());
        return name;
    }

    /// The parser keeps each name and namespace once.
    void note(std::string_view name) {
        names_.insert(name);
        require(names_.size(), limits::distinctNames, "different names");
    }

    void skipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(blanks), rest_.size())); }

    /// Steps past an attribute; false at the end of the tag, and where a parser would stop.
    bool takeAttribute(std::size_t& declared) {
        skipBlanks();
        if (rest_.empty() || rest_.front() == '>' || rest_.front() == '/') {
            return false;
        }
        const auto name = takeName();
        skipBlanks();
        if (!rest_.starts_with('=')) {
            return false;
        }
        rest_.remove_prefix(1);
        skipBlanks();
        if (rest_.empty() || (rest_.front() != '"' && rest_.front() != '\'')) {
            return false;
        }
        const auto end = rest_.find(rest_.front(), 1);
        if (name == "xmlns" || name.starts_with("xmlns:")) {
            ++declared;
            spend(limits::namespaceCost);
            const auto uri = rest_.substr(0, std::min(end, rest_.size()));
            require(uri.size(), limits::nameOctets, "octets in a namespace");
            note(uri);
        } else {
            spend(limits::attributeCost);
        }
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        return true;
    }

    void spend(std::size_t octets) {
        if (octets > left_) {
            refuseDocument("the XML document needs more memory than is spent on one");
        }
        left_ -= octets;
    }

    std::string_view rest_;
    std::size_t left_ = limits::treeOctets;
    std::vector<std::size_t> namespaces_; ///< declared by each open element
    std::size_t inScope_ = 0;
    std::unordered_set<std::string_view> names_;
};

} // namespace

void scanDocument(std::string_view text) {
    require(text.size(), limits::documentOctets, "octets");
    Scan(text).run();
}

} // namespace orvik::plugin::xml::internal
