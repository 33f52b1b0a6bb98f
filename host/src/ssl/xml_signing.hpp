#pragma once

#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "xml/algorithms.hpp"

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/smart_ptr/shared_ptr.hpp>
#include <libxml/tree.h>

#include <optional>

namespace orvik::plugin::ssl::internal {

/// Who signs a document, how, and when.
struct XmlSigner {
    boost::shared_ptr<crypto::ICertificate> certificate;
    boost::shared_ptr<crypto::IProvider> provider;
    const xml::internal::SigningMethod& method;
    std::optional<boost::posix_time::ptime> signingTime; ///< UTC; nullopt for a signature without XAdES properties
};

/// Adds an enveloped signature over the whole document as the last child of the document element. Throws
/// CryptoException unknownFormat for a document that is signed already, one in which a comment or a CDATA section parts
/// a text, and one beyond the limits of canonical forms; what the back-end's hash throws; std::bad_alloc.
void signXml(xmlDocPtr document, const XmlSigner& signer);

} // namespace orvik::plugin::ssl::internal
