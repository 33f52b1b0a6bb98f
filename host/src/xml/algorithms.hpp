#pragma once

/// The names of XML-DSig, and the algorithms with which signatures are made and checked here.

#include "crypto/oids.hpp"

#include <array>

namespace orvik::plugin::xml::internal {

inline constexpr const char* dsigNs = "http://www.w3.org/2000/09/xmldsig#";
inline constexpr const char* exclusiveC14n = "http://www.w3.org/2001/10/xml-exc-c14n#";
inline constexpr const char* envelopedSignature = "http://www.w3.org/2000/09/xmldsig#enveloped-signature";

/// How a signature with a key and a hash is written.
struct SigningMethod {
    const char* keyOid;
    const char* hashOid;
    const char* signatureUri;
    const char* digestUri;
    bool littleEndian; ///< the CryptoAPI gives the signature with its last octet first
};

namespace oids = crypto::oids;

// RFC 9231 for RSA; for GOST the names that CryptoPro's and other Russian products share.
inline constexpr std::array signingMethods = {
    SigningMethod{oids::gost2012_256, oids::hashGost2012_256,
                  "urn:ietf:params:xml:ns:cpxmlsec:algorithms:gostr34102012-gostr34112012-256",
                  "urn:ietf:params:xml:ns:cpxmlsec:algorithms:gostr34112012-256", false},
    SigningMethod{oids::gost2012_512, oids::hashGost2012_512,
                  "urn:ietf:params:xml:ns:cpxmlsec:algorithms:gostr34102012-gostr34112012-512",
                  "urn:ietf:params:xml:ns:cpxmlsec:algorithms:gostr34112012-512", false},
    SigningMethod{oids::gost2001, oids::hashGost94,
                  "urn:ietf:params:xml:ns:cpxmlsec:algorithms:gostr34102001-gostr3411",
                  "urn:ietf:params:xml:ns:cpxmlsec:algorithms:gostr3411", false},
    SigningMethod{oids::rsa, oids::sha256, "http://www.w3.org/2001/04/xmldsig-more#rsa-sha256",
                  "http://www.w3.org/2001/04/xmlenc#sha256", true},
};

} // namespace orvik::plugin::xml::internal
