#pragma once

/// Honestly signed documents, from which attacks start, and the verdict on the documents made from them.

#include "orvik/plugin/xml/xml_document.hpp"
#include "xml_signing.hpp"

#include <optional>
#include <string>

namespace host_test {

inline const std::string withoutItself = transformElement(enveloped);
inline const std::string withoutItselfExclusive = withoutItself + transformElement(exclusive);

/// Signatures by one signer, made once.
struct Honest {
    Signer signer{rsaSigner()};
    Signer other{rsaSigner()};
    std::string whole = sign(referenceTemplate("", withoutItself));
    std::string exclusive = sign(referenceTemplate("", withoutItselfExclusive));
    std::string byId = sign(referenceTemplate("#d1", withoutItselfExclusive));
    std::string part = sign(referenceTemplate("#p1", transformElement(host_test::exclusive)));
    std::string byXpath =
        sign(referenceTemplate("", "<Transform Algorithm=\"http://www.w3.org/TR/1999/REC-xpath-19991116\"><XPath "
                                   "xmlns:d=\"http://www.w3.org/2000/09/xmldsig#\">not(ancestor-or-self::d:Signature)"
                                   "</XPath></Transform>"));
    std::string enveloping = signTemplate(
        signer, signatureTemplate(referenceTemplate("#o1"), "<X509Data/>", "<Object Id=\"o1\">100</Object>"));

    [[nodiscard]] std::string sign(const std::string& references) const {
        return signTemplate(signer,
                            "<doc xmlns:x=\"urn:x\" xmlns:y=\"urn:y\" Id=\"d1\"><part Id=\"p1\" x:k=\"1\">100</part>"
                            "<part Id=\"p2\">two</part>" +
                                signatureTemplate(references) + "</doc>");
    }
};

const Honest& honest();

/// The document with properties of XAdES added to its signature; x is bound to XAdES in them.
std::string withUnsignedProperty(const std::string& text, const std::string& property);

/// The first signature of the document, as text.
std::string signatureOf(const std::string& text);

/// The worst verdict of the document's signatures; empty when the document is refused.
std::optional<orvik::plugin::xml::XmlSignatureResult> worst(const std::string& text,
                                                            const orvik::plugin::xml::XmlVerifyOptions& options);

} // namespace host_test
