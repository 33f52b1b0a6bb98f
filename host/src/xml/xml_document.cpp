#include "orvik/plugin/xml/xml_document.hpp"

#include "encoding.hpp"
#include "libxml.hpp"
#include "limits.hpp"
#include "orvik/plugin/exception/application_exception.hpp"
#include "refusal.hpp"
#include "scan.hpp"

#include <boost/algorithm/string/trim.hpp>
#include <libxml/parser.h>

#include <mutex>
#include <new>

namespace orvik::plugin::xml {

namespace {

using plugin::exception::ApplicationException;
using namespace internal::libxml; // NOLINT(google-build-using-namespace): its functions, late-bound

// No entity is expanded, no DTD is loaded, nothing is fetched; libxml2's own bounds on depth and sizes hold. The
// encoding has been found out before.
constexpr int parserOptions =
    XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_IGNORE_ENC | XML_PARSE_COMPACT;

struct ContextRelease {
    void operator()(xmlParserCtxt* context) const noexcept { xmlFreeParserCtxt(context); }
};

[[noreturn]] void refuse(const xmlError* error) {
    std::string why = error == nullptr ? std::string() : internal::fromXml(internal::toXml(error->message));
    boost::algorithm::trim(why);
    internal::refuseDocument("not a well-formed XML document: " + internal::shown(why));
}

internal::DocPtr parse(const internal::DecodedDocument& decoded) {
    static std::once_flag once;
    std::call_once(once, xmlInitParser);
    const internal::SilentErrors silent;
    const std::unique_ptr<xmlParserCtxt, ContextRelease> context(xmlNewParserCtxt());
    if (!context) {
        throw std::bad_alloc();
    }
    const auto text = decoded.text();
    internal::DocPtr document(xmlCtxtReadMemory(context.get(), text.data(), static_cast<int>(text.size()), nullptr,
                                                decoded.parserEncoding, parserOptions));
    if (!document) {
        refuse(xmlCtxtGetLastError(context.get()));
    }
    // libxml2 drops what it cannot understand of namespaces, so that nobody would learn of it; other readers stop
    // there.
    if (context->nsWellFormed == 0) {
        internal::refuseDocument("the namespaces of the XML document are not well-formed");
    }
    if (document->intSubset != nullptr || document->extSubset != nullptr) {
        internal::refuseDocument("the XML document has a document type declaration");
    }
    // XML 1.1 takes more characters for line ends, and the version is not signed.
    if (xmlStrEqual(document->version, internal::toXml("1.0")) == 0) {
        internal::refuseDocument("the XML document is not one of XML 1.0");
    }
    return document;
}

/// What the document says of its encoding is what it is written in again.
void keepEncoding(xmlDoc& document, const std::string& encoding) {
    xmlFree(const_cast<xmlChar*>(document.encoding));
    document.encoding = encoding.empty() ? nullptr : xmlStrdup(internal::toXml(encoding.c_str()));
}

internal::DocPtr read(const char* data, std::size_t size) {
    if (size == 0) {
        plugin::exception::raise(ApplicationException(ApplicationException::Code::emptyInput),
                                 {"xml_document", "XmlDocument"});
    }
    if (size > 2 * internal::limits::documentOctets) { // twice: UTF-16
        internal::refuseDocument("the XML document is too large");
    }
    const auto decoded = internal::decodeDocument({data, size});
    internal::scanDocument(decoded.text());
    auto document = parse(decoded);
    keepEncoding(*document, decoded.encoding);
    return document;
}

} // namespace

struct XmlDocument::Impl {
    internal::DocPtr document;
};

XmlDocument::XmlDocument(const char* data, std::size_t size) : impl_(std::make_unique<Impl>(Impl{read(data, size)})) {}

XmlDocument::~XmlDocument() = default;

void* XmlDocument::native() const noexcept {
    return impl_->document.get();
}

} // namespace orvik::plugin::xml
