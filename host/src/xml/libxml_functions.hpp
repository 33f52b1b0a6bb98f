#pragma once

/// The functions of libxml2 that are used here, under their own names. They hide those of its headers, with which
/// nothing is linked: one that is missing in this list is an error of the linker.

#include "xml/late_binding.hpp"

#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

namespace orvik::plugin::xml::internal {

inline namespace libxml {

inline constinit LateFunction<decltype(::xmlAddChild)> xmlAddChild{"xmlAddChild"};
inline constinit LateFunction<decltype(::xmlAddPrevSibling)> xmlAddPrevSibling{"xmlAddPrevSibling"};
inline constinit LateFunction<decltype(::xmlCtxtGetLastError)> xmlCtxtGetLastError{"xmlCtxtGetLastError"};
inline constinit LateFunction<decltype(::xmlCtxtReadMemory)> xmlCtxtReadMemory{"xmlCtxtReadMemory"};
inline constinit LateFunction<decltype(::xmlDocDumpMemory)> xmlDocDumpMemory{"xmlDocDumpMemory"};
inline constinit LateFunction<decltype(::xmlDocGetRootElement)> xmlDocGetRootElement{"xmlDocGetRootElement"};
inline constinit LateFunction<decltype(::xmlFreeDoc)> xmlFreeDoc{"xmlFreeDoc"};
inline constinit LateFunction<decltype(::xmlFreeParserCtxt)> xmlFreeParserCtxt{"xmlFreeParserCtxt"};
inline constinit LateFunction<decltype(::xmlGetNoNsProp)> xmlGetNoNsProp{"xmlGetNoNsProp"};
inline constinit LateFunction<decltype(::xmlHasNsProp)> xmlHasNsProp{"xmlHasNsProp"};
inline constinit LateFunction<decltype(::xmlHasProp)> xmlHasProp{"xmlHasProp"};
inline constinit LateFunction<decltype(::xmlInitParser)> xmlInitParser{"xmlInitParser"};
inline constinit LateFunction<decltype(::xmlIsBlankNode)> xmlIsBlankNode{"xmlIsBlankNode"};
inline constinit LateFunction<decltype(::xmlNewNs)> xmlNewNs{"xmlNewNs"};
inline constinit LateFunction<decltype(::xmlNewParserCtxt)> xmlNewParserCtxt{"xmlNewParserCtxt"};
inline constinit LateFunction<decltype(::xmlNewProp)> xmlNewProp{"xmlNewProp"};
inline constinit LateFunction<decltype(::xmlNewTextChild)> xmlNewTextChild{"xmlNewTextChild"};
inline constinit LateFunction<decltype(::xmlNodeListGetString)> xmlNodeListGetString{"xmlNodeListGetString"};
inline constinit LateFunction<decltype(::xmlSearchNs)> xmlSearchNs{"xmlSearchNs"};
inline constinit LateFunction<decltype(::xmlSearchNsByHref)> xmlSearchNsByHref{"xmlSearchNsByHref"};
inline constinit LateFunction<decltype(::xmlSetNs)> xmlSetNs{"xmlSetNs"};
inline constinit LateFunction<decltype(::xmlSetStructuredErrorFunc)> xmlSetStructuredErrorFunc{
    "xmlSetStructuredErrorFunc"};
inline constinit LateFunction<decltype(::xmlStrEqual)> xmlStrEqual{"xmlStrEqual"};
inline constinit LateFunction<decltype(::xmlStrdup)> xmlStrdup{"xmlStrdup"};
inline constinit LateFunction<decltype(::xmlUnlinkNode)> xmlUnlinkNode{"xmlUnlinkNode"};
inline constinit LateFunction<decltype(::xmlValidateNCName)> xmlValidateNCName{"xmlValidateNCName"};
inline constinit LateFunctionVariable<decltype(::xmlFree)> xmlFree{"xmlFree"};
/// Where this thread's handler of errors, and what is passed to it, are kept.
inline constinit LateFunction<decltype(::__xmlStructuredError)> placeOfErrorHandler{"__xmlStructuredError"};
inline constinit LateFunction<decltype(::__xmlStructuredErrorContext)> placeOfErrorContext{
    "__xmlStructuredErrorContext"};

} // namespace libxml

} // namespace orvik::plugin::xml::internal
