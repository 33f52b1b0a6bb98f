#include "honest_documents.hpp"

#include "orvik/plugin/crypto/exception/crypto_exception.hpp"

#include <gmock/gmock.h>

namespace host_test {

using orvik::plugin::crypto::exception::CryptoException;
using orvik::plugin::xml::XmlDocument;
using orvik::plugin::xml::XmlVerifyOptions;

const Honest& honest() {
    static const Honest made;
    return made;
}

std::string withUnsignedProperty(const std::string& text, const std::string& property) {
    return replaced(text, "</Signature>",
                    "<Object><x:QualifyingProperties xmlns:x=\"http://uri.etsi.org/01903/v1.3.2#\"><x:Unsigned"
                    "Properties><x:UnsignedSignatureProperties>" +
                        property +
                        "</x:UnsignedSignatureProperties></x:UnsignedProperties></x:QualifyingProperties></Object>"
                        "</Signature>");
}

std::string signatureOf(const std::string& text) {
    return part(text, "<Signature", "</Signature>");
}

std::optional<orvik::plugin::xml::XmlSignatureResult> worst(const std::string& text, const XmlVerifyOptions& options) {
    try {
        XmlDocument parsed(text.data(), text.size());
        const auto results = orvik::plugin::xml::verifyXmlSignatures(parsed, {}, options);
        orvik::plugin::xml::XmlSignatureResult found; // no signature at all: invalid
        for (std::size_t i = 0; i < results.size(); ++i) {
            if (i == 0 || (found.valid && (!results[i].valid || found.wholeDocument))) {
                found = results[i];
            }
        }
        return found;
    } catch (const CryptoException& e) {
        EXPECT_EQ(e.code().value(), static_cast<int>(CryptoException::Code::unknownFormat));
        EXPECT_NE(std::string(e.what()), "");
        return {};
    }
}

} // namespace host_test
