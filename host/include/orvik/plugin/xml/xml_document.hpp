#pragma once

#include "orvik/plugin/crypto/weak_algorithms.hpp"
#include "orvik/plugin/export.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace orvik::plugin::crypto {
class IProvider;
}

namespace orvik::plugin::xml {

/// A parsed XML document (libxml2; no network, no document type declaration, bounded work and memory).
class ORVIK_EXPORT XmlDocument {
public:
    /// `data` is UTF-8, UTF-16 with its byte order mark or declared, or a declared one-octet encoding. Throws
    /// ApplicationException emptyInput, or CryptoException unknownFormat whose text (ASCII) says why: not well-formed,
    /// a document type declaration, an encoding that is not read, or more than is read of one document.
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

enum class XmlSignatureVerdict {
    valid,   ///< the signer signed what the result says
    invalid, ///< the mathematics say no, or what is signed is not what a reader of the document sees
    unknown, ///< it cannot be judged here: something is not supported, or the signer's certificate is missing
};

/// A part of the document that a signature covers.
struct XmlCoveredPart {
    std::string path; ///< "/order/item[2]"; "/" for the document; names as in the document (UTF-8)
    std::string id;   ///< the identifier by which the signature names it; empty for the document
};

/// A time-stamp on a signature's value (SignatureTimeStamp, ETSI EN 319 132-1), not judged:
/// crypto::cadest::TimestampTools::judge() does.
struct XmlTimestamp {
    std::string token;   ///< DER or BER of the RFC 3161 token; empty when there is a problem
    std::string octets;  ///< what the token must be for: the canonical form of the SignatureValue element
    std::string problem; ///< why there is nothing to judge; empty when there is
    /// valid without a problem; else invalid (not of the required form) or unknown (not supported).
    XmlSignatureVerdict form = XmlSignatureVerdict::valid;
};

/// One signature found in a document. Texts are English and ASCII unless stated otherwise.
struct XmlSignatureResult {
    bool valid = false;      ///< verdict is valid
    std::string certificate; ///< DER of the signer's certificate; empty when it is not known
    std::string reason;      ///< why it is not valid
    XmlSignatureVerdict verdict = XmlSignatureVerdict::invalid;
    /// Whether the document element is covered whole but for the signature itself.
    bool wholeDocument = false;
    /// Whether the certificate is the caller's own, or the signature covers it (its KeyInfo or a XAdES
    /// signing-certificate property). If not, anybody can replace it with another certificate of the same key.
    bool certificateProtected = false;
    std::vector<XmlCoveredPart> covered;  ///< parts whose digests fit, in the order of the references
    std::vector<std::string> notCovered;  ///< what of the document the signature does not protect
    std::vector<crypto::Weakness> weak;   ///< broken or weak algorithms that the signature depends on
    std::string digestAlgorithm;          ///< OID of the digest that was signed; empty when it is not known
    boost::posix_time::ptime signingTime; ///< UTC, the signer's own statement (XAdES); not set without one
    std::vector<XmlTimestamp> timestamps; ///< when the signature's value fits the certificate's key, else empty
};

/// What is accepted beyond signatures of whole documents by certificates in them.
struct XmlVerifyOptions {
    bool allowPartial = false; ///< a signature over a part is valid; `covered` says over which
    bool allowBareKey = false; ///< a key in the signature does, without a certificate: nothing says whose it is
    /// DER of a signer's certificate. It is that of every signature whose value fits its key, whatever certificates
    /// that signature carries; other signatures are judged without it. Empty when the caller has none.
    std::string certificate = {};
};

/// Checks every XML-DSig signature of the document, in document order, with the key of a certificate in its KeyInfo.
/// The certificate's chain is not judged. Nothing outside the document is fetched; XSLT, XPath (but for the expression
/// that takes signatures out), Base64 and HMAC are not supported. `provider` is not needed and may be null. Throws
/// CryptoException unknownFormat for a document with more signatures than are checked. A GOST signature is unknown when
/// OpenSSL's GOST engine is not installed.
ORVIK_EXPORT std::vector<XmlSignatureResult> verifyXmlSignatures(XmlDocument& document,
                                                                 const boost::shared_ptr<crypto::IProvider>& provider);

/// The same with options.
ORVIK_EXPORT std::vector<XmlSignatureResult> verifyXmlSignatures(XmlDocument& document,
                                                                 const boost::shared_ptr<crypto::IProvider>& provider,
                                                                 const XmlVerifyOptions& options);

} // namespace orvik::plugin::xml
