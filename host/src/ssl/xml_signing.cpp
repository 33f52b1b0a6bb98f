#include "xml_signing.hpp"

#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"
#include "xml/canonical.hpp"
#include "xml/coverage.hpp"
#include "xml/issuer_serial.hpp"
#include "xml/libxml.hpp"
#include "xml/limits.hpp"
#include "xml/nodes.hpp"
#include "xml/refusal.hpp"
#include "xml/signature_model.hpp"
#include "xml/xades.hpp"
#include "xml/xades_writer.hpp"
#include "xml/xml_time.hpp"
#include "xml/xml_writer.hpp"

#include <algorithm>
#include <stdexcept>
#include <string_view>

namespace orvik::plugin::ssl::internal {

namespace {

using namespace xml::internal; // NOLINT(google-build-using-namespace): the parts of a signature

/// Refuses what the signature could not cover, or what it would break.
void requireSignable(const xmlDoc* document) {
    if (!signatureNodes(document).empty()) {
        refuseDocument("the XML document is already signed: another signature would change what the "
                       "first one covers");
    }
    if (lookAt(document).partedText) {
        refuseDocument("a comment or CDATA section parts a text of the XML document, which a signature "
                       "would not cover");
    }
}

/// Hashes the exclusive canonical form of the document, or of the subtree at `apex`.
void feed(crypto::IHash& hash, const xmlDoc* document, const xmlNode* apex = nullptr) {
    CanonicalBudget budget{limits::canonicalOctets, limits::canonicalSteps};
    hash.initialize();
    try {
        canonicalize(document, apex, {}, {}, budget, [&hash](std::string_view octets) {
            hash.update(reinterpret_cast<const unsigned char*>(octets.data()), octets.size());
        });
    } catch (const Refusal& refusal) {
        refuseDocument(std::string("the XML document cannot be signed: ") + refusal.what());
    }
}

std::string digestOf(const XmlSigner& signer, const xmlDoc* document, const xmlNode* apex = nullptr) {
    const auto hash = signer.provider->hash(nullptr, signer.method.hashOid);
    feed(*hash, document, apex);
    return hash->finalize();
}

xmlNodePtr addSignature(xmlNodePtr root) {
    const xmlNodePtr signature = addChild(root, "Signature", nullptr);
    xmlSetNs(signature, addNamespace(signature, dsigNs, nullptr));
    return signature;
}

/// What the properties say of the signer. Throws std::runtime_error when the certificate cannot be read.
SignerStatement statementOf(const XmlSigner& signer) {
    const std::string der = signer.certificate->raw();
    const auto certificate = fromDer<Owned<X509, X509_free>>(der, d2i_X509);
    if (!certificate) {
        throw std::runtime_error("the signer's certificate cannot be read");
    }
    const auto hash = signer.provider->hash(nullptr, signer.method.hashOid);
    hash->initialize();
    hash->update(reinterpret_cast<const unsigned char*>(der.data()), der.size());
    return {dateTime(*signer.signingTime), signer.method.digestUri, hash->finalize(), issuerSerialOf(*certificate)};
}

/// One Reference of a SignedInfo.
struct NewReference {
    std::string uri;
    const char* type; ///< null for none
    bool enveloped;   ///< without the signature
    std::string digest;
};

void addReference(xmlNodePtr info, const SigningMethod& method, const NewReference& made) {
    const xmlNodePtr reference = addChild(info, "Reference");
    if (made.type != nullptr) {
        addAttribute(reference, "Type", made.type);
    }
    addAttribute(reference, "URI", made.uri);
    const xmlNodePtr transforms = addChild(reference, "Transforms");
    if (made.enveloped) {
        addMethod(transforms, "Transform", info->ns, envelopedSignature);
    }
    addMethod(transforms, "Transform", info->ns, exclusiveC14n);
    addMethod(reference, "DigestMethod", info->ns, method.digestUri);
    addChild(reference, "DigestValue", base64::encode(made.digest));
}

xmlNodePtr addSignedInfo(xmlNodePtr signature, const SigningMethod& method,
                         const std::vector<NewReference>& references) {
    const xmlNodePtr info = addChild(signature, "SignedInfo");
    addMethod(info, "CanonicalizationMethod", info->ns, exclusiveC14n);
    addMethod(info, "SignatureMethod", info->ns, method.signatureUri);
    for (const NewReference& reference : references) {
        addReference(info, method, reference);
    }
    return info;
}

std::string valueOver(const xmlNode* info, const xmlDoc* document, const XmlSigner& signer) {
    const auto hash = signer.provider->hash(signer.certificate, signer.method.hashOid);
    feed(*hash, document, info);
    std::string value = hash->sign();
    if (signer.method.littleEndian) {
        std::reverse(value.begin(), value.end());
    }
    return value;
}

} // namespace

void signXml(xmlDocPtr document, const XmlSigner& signer) {
    requireSignable(document);
    std::vector<NewReference> references{{"", nullptr, true, digestOf(signer, document)}};
    const xmlNodePtr signature = addSignature(xmlDocGetRootElement(document));
    xmlNodePtr object = nullptr;
    if (signer.signingTime) {
        const xmlNodePtr properties = addSignedProperties(signature, statementOf(signer));
        object = properties->parent->parent;
        references.push_back(
            {"#" + attributeOf(properties, "Id"), signedPropertiesType, false, digestOf(signer, document, properties)});
        xmlUnlinkNode(object);
    }
    const xmlNodePtr info = addSignedInfo(signature, signer.method, references);
    addChild(signature, "SignatureValue", base64::encode(valueOver(info, document, signer)));
    addChild(addChild(addChild(signature, "KeyInfo"), "X509Data"), "X509Certificate",
             base64::encode(signer.certificate->raw()));
    if (object != nullptr) {
        xmlAddChild(signature, object);
    }
}

} // namespace orvik::plugin::ssl::internal
