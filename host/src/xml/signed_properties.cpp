#include "signed_properties.hpp"

#include "coverage.hpp"
#include "issuer_serial.hpp"
#include "nodes.hpp"
#include "refusal.hpp"
#include "signature_algorithms.hpp"
#include "xades.hpp"
#include "xml_time.hpp"

#include <boost/algorithm/string/trim.hpp>

#include <array>

namespace orvik::plugin::xml::internal {

namespace {

constexpr std::array signingCertificates = {"SigningCertificate", "SigningCertificateV2"};

[[noreturn]] void namesNone() {
    invalid("the signature's signing-certificate property names no certificate");
}

NamedCertificate named(const xmlNode* property) {
    const auto certificates = childElements(property);
    if (certificates.empty() || !isXades(certificates.front(), "Cert")) {
        namesNone();
    }
    const auto parts = childElements(certificates.front());
    if (parts.empty() || parts.size() > 2 || !isXades(parts.front(), "CertDigest")) {
        namesNone();
    }
    const auto digest = childElements(parts.front());
    if (digest.size() != 2 || !isElement(digest[0], "DigestMethod") || !isElement(digest[1], "DigestValue")) {
        namesNone();
    }
    NamedCertificate name{attributeOf(digest[0], "Algorithm"), octetsOf(digest[1]), {}, {}};
    if (parts.size() == 2 && isXades(parts[1], "IssuerSerialV2")) {
        name.issuerSerial = octetsOf(parts[1]);
    } else if (parts.size() == 2 && isXades(parts[1], "IssuerSerial")) {
        const auto serial = childElements(parts[1]);
        if (serial.size() != 2 || !isElement(serial[1], "X509SerialNumber")) {
            namesNone();
        }
        name.serialNumber = boost::algorithm::trim_copy(textOf(serial[1]));
    } else if (parts.size() == 2) {
        namesNone();
    }
    return name;
}

/// The only child of that name, null without one. Throws Refusal when there are several.
const xmlNode* only(const xmlNode* parent, const char* name) {
    const xmlNode* const first = xadesChild(parent, name);
    for (const xmlNode* node = first == nullptr ? nullptr : first->next; node != nullptr; node = node->next) {
        if (isXades(node, name)) {
            invalid(std::string("the signature has more than one ") + name);
        }
    }
    return first;
}

} // namespace

SignedProperties signedProperties(const SignatureModel& signature, const std::vector<const xmlNode*>& targets) {
    const xmlNode* const node = xadesChild(qualifyingPropertiesOf(signature), "SignedProperties");
    SignedProperties properties;
    if (node == nullptr || !isCovered(node, signature, targets)) {
        return properties;
    }
    properties.present = true;
    const xmlNode* const own = only(node, "SignedSignatureProperties");
    for (const char* name : signingCertificates) {
        if (const xmlNode* const property = only(own, name)) {
            properties.certificates.push_back(named(property));
        }
    }
    if (const xmlNode* const time = only(own, "SigningTime")) {
        properties.signingTime = timeOf(textOf(time));
    }
    return properties;
}

bool isNamed(const std::string& der, const X509& certificate, const NamedCertificate& name) {
    const DigestAlgorithm* const algorithm = digestAlgorithm(name.digestMethod);
    if (algorithm == nullptr) {
        unknown("the signing-certificate property uses a digest that is not supported: " + shown(name.digestMethod));
    }
    Digest digest(*algorithm);
    digest.update(der);
    return digest.finish() == name.digest &&
           (name.issuerSerial.empty() || isIssuerSerialOf(name.issuerSerial, certificate)) &&
           (name.serialNumber.empty() || name.serialNumber == serialNumberOf(certificate));
}

} // namespace orvik::plugin::xml::internal
