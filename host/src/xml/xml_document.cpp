#include "orvik/plugin/xml/xml_document.hpp"

#include "libxml.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/exception/application_exception.hpp"

#include <boost/algorithm/string/trim.hpp>
#include <libxml/parser.h>

#include <climits>
#include <mutex>
#include <new>

namespace orvik::plugin::xml {

namespace {

using crypto::exception::CryptoException;
using plugin::exception::ApplicationException;

// Entities stay unexpanded, no DTD is loaded, nothing is fetched; libxml2's own bounds on depth and sizes hold.
constexpr int parserOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

struct ContextRelease {
    void operator()(xmlParserCtxt* context) const noexcept { xmlFreeParserCtxt(context); }
};

[[noreturn]] void refuse(const xmlError* error) {
    std::string why = error == nullptr ? std::string() : internal::fromXml(internal::toXml(error->message));
    boost::algorithm::trim(why);
    plugin::exception::raise(CryptoException(CryptoException::Code::unknownFormat)
                                 << plugin::exception::Message_("not a well-formed XML document: " + why),
                             {"xml_document", "XmlDocument"});
}

internal::DocPtr parse(const char* data, std::size_t size) {
    static std::once_flag once;
    std::call_once(once, xmlInitParser);
    if (size == 0) {
        plugin::exception::raise(ApplicationException(ApplicationException::Code::emptyInput),
                                 {"xml_document", "XmlDocument"});
    }
    const std::unique_ptr<xmlParserCtxt, ContextRelease> context(xmlNewParserCtxt());
    if (!context) {
        throw std::bad_alloc();
    }
    if (size > INT_MAX) { // what libxml2 takes at once
        refuse(nullptr);
    }
    internal::DocPtr document(
        xmlCtxtReadMemory(context.get(), data, static_cast<int>(size), nullptr, nullptr, parserOptions));
    if (!document) {
        refuse(xmlCtxtGetLastError(context.get()));
    }
    return document;
}

} // namespace

struct XmlDocument::Impl {
    internal::DocPtr document;
};

XmlDocument::XmlDocument(const char* data, std::size_t size) : impl_(std::make_unique<Impl>(Impl{parse(data, size)})) {}

XmlDocument::~XmlDocument() = default;

void* XmlDocument::native() const noexcept {
    return impl_->document.get();
}

} // namespace orvik::plugin::xml
