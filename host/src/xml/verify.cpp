#include "gost_engine.hpp"
#include "gost_transforms.hpp"
#include "libxml.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "ossl/owners.hpp"
#include "signature_nodes.hpp"
#include "xmlsec_library.hpp"

#include <openssl/x509.h>
#include <xmlsec/crypto.h>
#include <xmlsec/keys.h>
#include <xmlsec/keysmngr.h>
#include <xmlsec/openssl/evp.h>
#include <xmlsec/xmldsig.h>

#include <algorithm>
#include <array>

namespace orvik::plugin::xml {

namespace {

using ssl::internal::fromDer;
using ssl::internal::Owned;
using X509Ptr = Owned<X509, X509_free>;
using KeyPtr = Owned<xmlSecKey, xmlSecKeyDestroy>;
using DSigPtr = Owned<xmlSecDSigCtx, xmlSecDSigCtxDestroy>;
using KeysPtr = Owned<xmlSecKeysMngr, xmlSecKeysMngrDestroy>;

// What a signature may ask for. No HMAC (there is no shared key), no MD5, and no XPath or XSLT, which let a document
// say what of it is signed and cost without bound.
constexpr std::array allowedTransforms = {
    "http://www.w3.org/TR/2001/REC-xml-c14n-20010315",
    "http://www.w3.org/TR/2001/REC-xml-c14n-20010315#WithComments",
    "http://www.w3.org/2006/12/xml-c14n11",
    "http://www.w3.org/2006/12/xml-c14n11#WithComments",
    "http://www.w3.org/2001/10/xml-exc-c14n#",
    "http://www.w3.org/2001/10/xml-exc-c14n#WithComments",
    "http://www.w3.org/2000/09/xmldsig#enveloped-signature",
    "http://www.w3.org/2000/09/xmldsig#base64",
    "http://www.w3.org/TR/1999/REC-xpath-19991116",
    "http://www.w3.org/2000/09/xmldsig#sha1",
    "http://www.w3.org/2001/04/xmldsig-more#sha224",
    "http://www.w3.org/2001/04/xmlenc#sha256",
    "http://www.w3.org/2001/04/xmldsig-more#sha384",
    "http://www.w3.org/2001/04/xmlenc#sha512",
    "http://www.w3.org/2000/09/xmldsig#dsa-sha1",
    "http://www.w3.org/2009/xmldsig11#dsa-sha256",
    "http://www.w3.org/2000/09/xmldsig#rsa-sha1",
    "http://www.w3.org/2001/04/xmldsig-more#rsa-sha224",
    "http://www.w3.org/2001/04/xmldsig-more#rsa-sha256",
    "http://www.w3.org/2001/04/xmldsig-more#rsa-sha384",
    "http://www.w3.org/2001/04/xmldsig-more#rsa-sha512",
    "http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha1",
    "http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha224",
    "http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha256",
    "http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha384",
    "http://www.w3.org/2001/04/xmldsig-more#ecdsa-sha512",
};

void allow(xmlSecDSigCtx& context, xmlSecTransformId id) {
    if (id == nullptr) {
        return; // this build of xmlsec has no such transform
    }
    if ((id->usage & xmlSecTransformUsageSignatureMethod) != 0 || (id->usage & xmlSecTransformUsageC14NMethod) != 0) {
        xmlSecDSigCtxEnableSignatureTransform(&context, id);
    }
    if ((id->usage & xmlSecTransformUsageSignatureMethod) == 0) {
        xmlSecDSigCtxEnableReferenceTransform(&context, id);
    }
}

DSigPtr newContext(xmlSecKeysMngr* keys) {
    DSigPtr context(xmlSecDSigCtxCreate(keys));
    if (!context) {
        throw std::bad_alloc();
    }
    context->flags |= XMLSEC_DSIG_FLAGS_IGNORE_MANIFESTS;
    context->enabledReferenceUris = xmlSecTransformUriTypeEmpty | xmlSecTransformUriTypeSameDocument;
    for (const char* uri : allowedTransforms) {
        allow(*context,
              xmlSecTransformIdListFindByHref(xmlSecTransformIdsGet(), internal::toXml(uri), xmlSecTransformUsageAny));
    }
    for (const xmlSecTransformId id : internal::gostTransforms()) {
        allow(*context, id);
    }
    return context;
}

xmlSecKeyDataType publicKeyType(xmlSecKeyDataPtr /*data*/) {
    return xmlSecKeyDataTypePublic;
}

/// A key for xmlsec that says no more than that there is one: the GOST transforms get theirs directly.
xmlSecKeyDataPtr placeholder() {
    static const xmlSecKeyDataKlass klass = [] {
        _xmlSecKeyDataKlass made{};
        made.klassSize = sizeof(xmlSecKeyDataKlass);
        made.objSize = sizeof(xmlSecKeyData);
        made.name = internal::toXml("certificate");
        made.getType = publicKeyType;
        return made;
    }();
    return xmlSecKeyDataCreate(&klass);
}

xmlSecKeyDataPtr keyData(EVP_PKEY* key) {
    EVP_PKEY_up_ref(key);
    xmlSecKeyDataPtr data = xmlSecOpenSSLEvpKeyAdopt(key);
    if (data == nullptr) {
        EVP_PKEY_free(key);
        internal::takeXmlsecReport(); // that xmlsec has no use for GOST keys is no news of this signature
        data = placeholder();
    }
    return data;
}

bool verify(xmlSecDSigCtx& context, xmlNodePtr signature) {
    return xmlSecDSigCtxVerify(&context, signature) >= 0 && context.status == xmlSecDSigStatusSucceeded;
}

/// Whether the signature is by the key of that certificate.
bool verifyBy(const std::string& certificate, xmlNodePtr signature) {
    const auto x509 = fromDer<X509Ptr>(certificate, d2i_X509);
    EVP_PKEY* const publicKey = x509 ? X509_get0_pubkey(x509.get()) : nullptr;
    KeyPtr key(xmlSecKeyCreate());
    if (publicKey == nullptr || !key || xmlSecKeySetValue(key.get(), keyData(publicKey)) < 0) {
        return false;
    }
    const DSigPtr context = newContext(nullptr);
    context->signKey = key.release();
    context->transformCtx.userData = publicKey;
    return verify(*context, signature);
}

/// Whether the signature is by the bare key in its own KeyInfo.
bool verifyByKeyValue(xmlNodePtr signature) {
    const KeysPtr keys(xmlSecKeysMngrCreate());
    if (!keys) {
        throw std::bad_alloc();
    }
    keys->getKey = xmlSecKeysMngrGetKey;
    const DSigPtr context = newContext(keys.get());
    for (const xmlSecKeyDataId id :
         {xmlSecKeyDataValueId, xmlSecKeyDataRsaId, xmlSecKeyDataEcdsaId, xmlSecKeyDataDsaId}) {
        xmlSecPtrListAdd(&context->keyInfoReadCtx.enabledKeyData, const_cast<_xmlSecKeyDataKlass*>(id));
    }
    return verify(*context, signature);
}

/// Why no key fitted, as far as xmlsec has told.
std::string refusal(bool certified) {
    const std::string report = internal::takeXmlsecReport();
    if (!certified) {
        return "the signature carries no certificate, and no key of its own that fits" +
               (report.empty() ? "" : ": " + report);
    }
    return report.empty() ? "the document or the signature has been changed" : report;
}

XmlSignatureResult check(xmlNodePtr signature) {
    if (!internal::hasOnlyPlainXpath(signature)) {
        return {false, {}, "the signature uses an XPath expression that is not allowed"};
    }
    const auto certificates = internal::keyInfoCertificates(signature);
    internal::takeXmlsecReport();
    if (certificates.empty()) {
        const bool valid = verifyByKeyValue(signature);
        return {valid, {}, valid ? "" : refusal(false)};
    }
    // Lists of certificates are not ordered: the signer is the one whose key fits.
    for (const auto& certificate : certificates) {
        if (verifyBy(certificate, signature)) {
            return {true, certificate, {}};
        }
    }
    return {false, certificates.front(), refusal(true)};
}

/// Without the engine a GOST signature cannot be told from a wrong one, and to call it wrong would be a lie.
void requireEngineFor(xmlNodePtr signature) {
    using crypto::exception::CryptoException;
    const auto uris = internal::algorithmUris(signature);
    if (internal::gostEngine() == nullptr && std::any_of(uris.begin(), uris.end(), internal::isGostTransform)) {
        plugin::exception::raise(CryptoException(CryptoException::Code::algorithmUnsupported)
                                     << plugin::exception::Message_("OpenSSL's GOST engine is not installed"),
                                 {"xml_document", "verifyXmlSignatures"});
    }
}

} // namespace

std::vector<XmlSignatureResult> verifyXmlSignatures(XmlDocument& document,
                                                    const boost::shared_ptr<crypto::IProvider>& /*provider*/) {
    internal::requireXmlsec();
    internal::gostEngine(); // before any certificate is read: their keys are decoded with them
    auto* const native = static_cast<xmlDocPtr>(document.native());
    const bool unambiguous = internal::registerIds(native);
    std::vector<XmlSignatureResult> results;
    for (const xmlNodePtr signature : internal::signatureNodes(native)) {
        requireEngineFor(signature);
        results.push_back(unambiguous ? check(signature)
                                      : XmlSignatureResult{false, {}, "two elements have the same identifier"});
    }
    return results;
}

} // namespace orvik::plugin::xml
