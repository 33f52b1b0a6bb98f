#pragma once

#include "orvik/plugin/export.hpp"

#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace orvik::plugin::crypto {
class IProvider;
}

namespace orvik::plugin::xml {

/// A parsed XML document (libxml2; no network, no entity expansion).
class ORVIK_EXPORT XmlDocument {
public:
    /// Throws ApplicationException emptyInput or a CryptoException for text that is not well-formed.
    XmlDocument(const char* data, std::size_t size);
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;
    ~XmlDocument();

    /// libxml2's document (xmlDocPtr); stays the object's.
    [[nodiscard]] void* native() const noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// One signature found in a document.
struct XmlSignatureResult {
    bool valid = false;
    std::string certificate; ///< DER of the signer's certificate, empty when the signature carries none
    std::string reason;      ///< why it is not valid
};

/// Checks every XML-DSig signature of the document, in document order, with the key of a certificate in its KeyInfo, or
/// else a bare key there. Neither the certificate's chain nor what the references leave out is judged. Nothing outside
/// the document is fetched; of XPath only the expression that takes signatures out is allowed, XSLT and HMAC are not.
/// `provider` is not needed for it and may be null. Throws CryptoException algorithmUnsupported for a GOST signature
/// when OpenSSL's GOST engine is not installed: that is no verdict.
ORVIK_EXPORT std::vector<XmlSignatureResult> verifyXmlSignatures(XmlDocument& document,
                                                                 const boost::shared_ptr<crypto::IProvider>& provider);

} // namespace orvik::plugin::xml
