#pragma once

#include "orvik/plugin/ssl/xmldsig_creator.hpp"
#include "signer.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace host_test {

/// The document with an enveloped signature, fed to the framework's creator in chunks of that size (0: whole).
std::string signXml(const Signer& signer, const std::string& document, std::size_t chunk = 0);

/// The same with these parameters, to which the signer's certificate is added.
std::string signXml(const Signer& signer, const std::string& document,
                    orvik::plugin::ssl::xmldsig::Creator::Params params, std::size_t chunk = 0);

/// Whether the xmlsec1 command verifies the document with the signer's certificate. `more` are options.
bool xmlsecVerifies(const Signer& signer, const std::string& document, const std::vector<std::string>& more = {});

/// The document with its Signature template filled in by the xmlsec1 command. Attributes "Id" of elements doc, part and
/// Object are identifiers.
std::string signTemplate(const Signer& signer, const std::string& text);

/// A Signature template over these Reference templates.
std::string signatureTemplate(const std::string& references, const std::string& keyInfo = "<X509Data/>",
                              const std::string& after = {},
                              const std::string& method = "http://www.w3.org/2001/04/xmldsig-more#rsa-sha256");

/// A Reference template with a SHA-256 digest.
std::string referenceTemplate(const std::string& uri, const std::string& transforms = {},
                              const std::string& attributes = {});

/// A Transform element without parameters.
std::string transformElement(const std::string& uri);

inline constexpr const char* enveloped = "http://www.w3.org/2000/09/xmldsig#enveloped-signature";
inline constexpr const char* exclusive = "http://www.w3.org/2001/10/xml-exc-c14n#";

/// The text with the first `old` replaced. Throws std::logic_error when it is not there.
std::string replaced(std::string text, const std::string& old, const std::string& with);

/// The text from the first `from` to the end of the next `to`.
std::string part(const std::string& text, const std::string& from, const std::string& to);

/// What stands in the first element of that name without attributes.
std::string content(const std::string& text, const std::string& element);

} // namespace host_test
