#include "orvik/plugin/ssl/xmldsig_creator.hpp"

#include "orvik/plugin/base64.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/crypto/i_certificate.hpp"
#include "orvik/plugin/crypto/i_hash.hpp"
#include "orvik/plugin/crypto/i_provider.hpp"
#include "orvik/plugin/crypto/i_public_key.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "xml/algorithms.hpp"
#include "xml/canonical.hpp"
#include "xml/coverage.hpp"
#include "xml/libxml.hpp"
#include "xml/limits.hpp"
#include "xml/refusal.hpp"
#include "xml/signature_model.hpp"

#include <algorithm>
#include <cstdint>
#include <new>
#include <string_view>

namespace orvik::plugin::ssl::xmldsig {

namespace {

using crypto::exception::CryptoException;
using xml::internal::SigningMethod;
using xml::internal::toXml;

constexpr std::uint16_t digitalSignature = 0x80; // the first bit of the key usage (RFC 5280, section 4.2.1.3)

[[noreturn]] void refuse(CryptoException::Code code) {
    plugin::exception::raise(CryptoException(code), {"xmldsig_creator", "initializeImpl"});
}

const SigningMethod& signingMethod(const crypto::ICertificate& certificate) {
    const auto key = certificate.publicKey();
    const std::string hash = certificate.hashAlgorithm();
    const auto& methods = xml::internal::signingMethods;
    const auto* found = std::find_if(methods.begin(), methods.end(), [&](const SigningMethod& method) {
        return key && key->algObjId() == method.keyOid && hash == method.hashOid;
    });
    if (found == methods.end()) {
        refuse(CryptoException::Code::algorithmUnsupported);
    }
    return *found;
}

void requireSigningUsage(const crypto::ICertificate& certificate) {
    const auto usage = certificate.keyUsage();
    if (!usage || (*usage & digitalSignature) == 0) {
        refuse(CryptoException::Code::keyUsageForbids);
    }
}

/// An XML signature has no place for the attributes of CMS.
void requireNoAttributes(const crypto::SignatureFactory::Creator::Params& params) {
    if (!params.attributes.empty()) {
        plugin::exception::raise(CryptoException(CryptoException::Code::badAttribute)
                                     << plugin::exception::Message_("signed attributes are not for XML signatures"),
                                 {"xmldsig_creator", "initializeImpl"});
    }
}

/// Refuses what the signature could not cover, or what it would break.
void requireSignable(const xmlDoc* document) {
    if (!xml::internal::signatureNodes(document).empty()) {
        xml::internal::refuseDocument("the XML document is already signed: another signature would change what the "
                                      "first one covers");
    }
    if (xml::internal::lookAt(document).partedText) {
        xml::internal::refuseDocument("a comment or CDATA section parts a text of the XML document, which a signature "
                                      "would not cover");
    }
}

/// Hashes the exclusive canonical form of the document, or of the subtree at `apex`.
void feed(crypto::IHash& hash, const xmlDoc* document, const xmlNode* apex = nullptr) {
    xml::internal::CanonicalBudget budget{xml::internal::limits::canonicalOctets,
                                          xml::internal::limits::canonicalSteps};
    hash.initialize();
    try {
        xml::internal::canonicalize(document, apex, {}, {}, budget, [&hash](std::string_view octets) {
            hash.update(reinterpret_cast<const unsigned char*>(octets.data()), octets.size());
        });
    } catch (const xml::internal::Refusal& refusal) {
        xml::internal::refuseDocument(std::string("the XML document cannot be signed: ") + refusal.what());
    }
}

xmlNodePtr addChild(xmlNodePtr parent, const char* name, const std::string& text = {}) {
    const xmlNodePtr child =
        xmlNewTextChild(parent, parent->ns, toXml(name), text.empty() ? nullptr : toXml(text.c_str()));
    if (child == nullptr) {
        throw std::bad_alloc();
    }
    return child;
}

xmlNodePtr addMethod(xmlNodePtr parent, const char* name, const char* uri) {
    const xmlNodePtr child = addChild(parent, name);
    if (xmlNewProp(child, toXml("Algorithm"), toXml(uri)) == nullptr) {
        throw std::bad_alloc();
    }
    return child;
}

/// The SignedInfo of one reference to the whole document without this signature.
xmlNodePtr addSignedInfo(xmlNodePtr signature, const SigningMethod& method, const std::string& digest) {
    const xmlNodePtr info = addChild(signature, "SignedInfo");
    addMethod(info, "CanonicalizationMethod", xml::internal::exclusiveC14n);
    addMethod(info, "SignatureMethod", method.signatureUri);
    const xmlNodePtr reference = addChild(info, "Reference");
    if (xmlNewProp(reference, toXml("URI"), toXml("")) == nullptr) {
        throw std::bad_alloc();
    }
    const xmlNodePtr transforms = addChild(reference, "Transforms");
    addMethod(transforms, "Transform", xml::internal::envelopedSignature);
    addMethod(transforms, "Transform", xml::internal::exclusiveC14n);
    addMethod(reference, "DigestMethod", method.digestUri);
    addChild(reference, "DigestValue", base64::encode(digest));
    return info;
}

void addCertificate(xmlNodePtr signature, const std::string& der) {
    addChild(addChild(addChild(signature, "KeyInfo"), "X509Data"), "X509Certificate", base64::encode(der));
}

xmlNodePtr addSignature(xmlNodePtr root) {
    const xmlNodePtr signature = xmlNewChild(root, nullptr, toXml("Signature"), nullptr);
    if (signature == nullptr) {
        throw std::bad_alloc();
    }
    const xmlNsPtr ns = xmlNewNs(signature, toXml(xml::internal::dsigNs), nullptr);
    xmlSetNs(signature, ns);
    return signature;
}

} // namespace

struct Creator::Context {
    boost::shared_ptr<crypto::ICertificate> certificate;
    boost::shared_ptr<crypto::IProvider> provider;
    const SigningMethod& method;
    std::string text;

    void sign(xmlDocPtr document) const;
};

void Creator::Context::sign(xmlDocPtr document) const {
    requireSignable(document);
    const auto digest = provider->hash(nullptr, method.hashOid);
    feed(*digest, document);
    const xmlNodePtr signature = addSignature(xmlDocGetRootElement(document));
    const xmlNodePtr info = addSignedInfo(signature, method, digest->finalize());
    const auto hash = provider->hash(certificate, method.hashOid);
    feed(*hash, document, info);
    std::string value = hash->sign();
    if (method.littleEndian) {
        std::reverse(value.begin(), value.end());
    }
    addChild(signature, "SignatureValue", base64::encode(value));
    addCertificate(signature, certificate->raw());
}

Creator::Creator() = default;
Creator::~Creator() = default;

bool Creator::initializeImpl(const IDataHandler::Params& params) {
    const auto& own = dynamic_cast<const Params&>(params);
    const auto& certificate = own.certificate;
    if (!certificate) {
        refuse(CryptoException::Code::noCertificate);
    }
    requireSigningUsage(*certificate);
    requireNoAttributes(own);
    auto provider = certificate->provider(true);
    if (!provider) {
        refuse(CryptoException::Code::noProvider);
    }
    context_ = std::make_unique<Context>(Context{certificate, std::move(provider), signingMethod(*certificate), {}});
    return true;
}

bool Creator::updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) {
    if (!context_) {
        return false;
    }
    if (data != nullptr) {
        context_->text.append(reinterpret_cast<const char*>(data), size);
    }
    if (consumed != nullptr) {
        *consumed = size;
    }
    return true;
}

bool Creator::finalizeImpl(std::vector<unsigned char>& out) {
    if (!context_) {
        return false;
    }
    const auto context = std::move(context_);
    const xml::XmlDocument document(context->text.data(), context->text.size());
    auto* const native = static_cast<xmlDocPtr>(document.native());
    context->sign(native);
    const std::string text = xml::internal::serialized(native);
    out.assign(text.begin(), text.end());
    return true;
}

} // namespace orvik::plugin::ssl::xmldsig
