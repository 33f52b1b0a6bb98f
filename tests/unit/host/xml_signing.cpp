#include "xml_signing.hpp"

#include "support/process.hpp"

#include <algorithm>
#include <stdexcept>

namespace host_test {

std::string signXml(const Signer& signer, const std::string& document, std::size_t chunk) {
    return signXml(signer, document, {}, chunk);
}

bool xmlsecVerifies(const Signer& signer, const std::string& document, const std::vector<std::string>& more) {
    signer.folder().write("judged.xml", document);
    std::vector<std::string> command = {"xmlsec1",           "--verify",
                                        "--pubkey-cert-pem", signer.folder() / "c.pem",
                                        "--id-attr:Id",      "http://uri.etsi.org/01903/v1.3.2#:SignedProperties"};
    command.insert(command.end(), more.begin(), more.end());
    command.push_back(signer.folder() / "judged.xml");
    return test_support::run(command).exit == 0;
}

std::string signXml(const Signer& signer, const std::string& document,
                    orvik::plugin::ssl::xmldsig::Creator::Params params, std::size_t chunk) {
    orvik::plugin::ssl::xmldsig::Creator creator;
    params.certificate = signer.certificate();
    creator.initialize(params);
    const std::size_t step = chunk == 0 ? document.size() : chunk;
    for (std::size_t done = 0; done < document.size(); done += step) {
        std::size_t consumed = 0;
        const std::size_t size = std::min(step, document.size() - done);
        if (!creator.update(reinterpret_cast<const unsigned char*>(document.data()) + done, size, &consumed) ||
            consumed != size) {
            throw std::runtime_error("the creator did not take the document");
        }
    }
    std::vector<unsigned char> out;
    if (!creator.finalize(out)) {
        throw std::runtime_error("the creator made no signature");
    }
    return {out.begin(), out.end()};
}

std::string signTemplate(const Signer& signer, const std::string& text) {
    const auto& folder = signer.folder();
    folder.write("template.xml", text);
    folder.write("hmac", "secret");
    const auto made = test_support::run({"xmlsec1", "--sign", "--id-attr:Id", "part", "--id-attr:Id", "doc",
                                         "--id-attr:Id", "http://www.w3.org/2000/09/xmldsig#:Object", "--id-attr:Id",
                                         "http://uri.etsi.org/01903/v1.3.2#:SignedProperties", "--privkey-pem",
                                         (folder / "key.pem") + "," + (folder / "c.pem"), "--hmackey", folder / "hmac",
                                         "--output", folder / "out.xml", folder / "template.xml"});
    if (made.exit != 0) {
        throw std::runtime_error("xmlsec1 does not sign: " + made.err);
    }
    return folder.read("out.xml");
}

std::string signatureTemplate(const std::string& references, const std::string& keyInfo, const std::string& after,
                              const std::string& method) {
    return "<Signature xmlns=\"http://www.w3.org/2000/09/xmldsig#\"><SignedInfo><CanonicalizationMethod "
           "Algorithm=\"http://www.w3.org/TR/2001/REC-xml-c14n-20010315\"/><SignatureMethod Algorithm=\"" +
           method + "\"/>" + references + "</SignedInfo><SignatureValue/><KeyInfo>" + keyInfo + "</KeyInfo>" + after +
           "</Signature>";
}

std::string referenceTemplate(const std::string& uri, const std::string& transforms, const std::string& attributes) {
    return "<Reference URI=\"" + uri + "\"" + attributes + ">" +
           (transforms.empty() ? "" : "<Transforms>" + transforms + "</Transforms>") +
           "<DigestMethod Algorithm=\"http://www.w3.org/2001/04/xmlenc#sha256\"/><DigestValue/></Reference>";
}

std::string transformElement(const std::string& uri) {
    return "<Transform Algorithm=\"" + uri + "\"/>";
}

std::string replaced(std::string text, const std::string& old, const std::string& with) {
    const auto at = text.find(old);
    if (at == std::string::npos) {
        throw std::logic_error("the text to replace is not there: " + old);
    }
    return text.replace(at, old.size(), with);
}

std::string part(const std::string& text, const std::string& from, const std::string& to) {
    const auto begin = text.find(from);
    return text.substr(begin, text.find(to, begin) + to.size() - begin);
}

std::string content(const std::string& text, const std::string& element) {
    const auto begin = text.find("<" + element + ">") + element.size() + 2;
    return text.substr(begin, text.find("</" + element + ">") - begin);
}

} // namespace host_test
