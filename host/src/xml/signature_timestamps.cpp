#include "signature_timestamps.hpp"

#include "limits.hpp"
#include "nodes.hpp"
#include "ossl/owners.hpp"
#include "refusal.hpp"
#include "xades.hpp"

#include <openssl/asn1.h>

#include <array>
#include <string_view>

namespace orvik::plugin::xml::internal {

namespace {

using TypePtr = ssl::internal::Owned<ASN1_TYPE, ASN1_TYPE_free>;

constexpr const char* timestampName = "SignatureTimeStamp";
constexpr const char* tooMany = "the signature has more time-stamps than are judged here";

// Of EncapsulatedTimeStamp (section 5.1.3): DER is the default, and tokens are read as BER.
constexpr std::array encodings = {"", "http://uri.etsi.org/01903/v1.2.2#DER", "http://uri.etsi.org/01903/v1.2.2#BER"};

const xmlNode* valueOf(const SignatureModel& signature) {
    return childElements(signature.node).at(1); // readSignature has seen it there
}

/// The form that the time-stamp states; Canonical XML 1.0 when it states none (section 5.1.4.4.2).
CanonicalForm formOf(const xmlNode* method) {
    if (method == nullptr) {
        return {CanonicalMethod::inclusive10, {}};
    }
    auto form = readCanonicalForm(method);
    if (!form) {
        unknown("the time-stamp uses a canonicalization that is not supported: " +
                shown(attributeOf(method, "Algorithm")));
    }
    return *form;
}

std::string tokenOf(const xmlNode* encapsulated) {
    const std::string encoding = attributeOf(encapsulated, "Encoding");
    bool known = false;
    for (const char* name : encodings) {
        known = known || encoding == name;
    }
    if (!known) {
        unknown("the time-stamp is in an encoding that is not supported: " + shown(encoding));
    }
    std::string token = octetsOf(encapsulated);
    if (token.size() > limits::tokenOctets) {
        unknown("the time-stamp is larger than is read here");
    }
    const ssl::internal::ErrorMark mark;
    if (!ssl::internal::fromDer<TypePtr>(token, d2i_ASN1_TYPE)) {
        invalid("the time-stamp is not exactly one DER or BER value");
    }
    return token;
}

/// The parts of one SignatureTimeStamp, put into `found`.
void readTimestamp(const xmlNode* timestamp, const SignatureModel& signature, CanonicalBudget& budget,
                   std::vector<XmlTimestamp>& found) {
    const auto parts = childElements(timestamp);
    auto part = parts.begin();
    const bool stated = part != parts.end() && isElement(*part, "CanonicalizationMethod");
    const CanonicalForm form = formOf(stated ? *part++ : nullptr);
    if (part == parts.end()) {
        invalid("the time-stamp holds no token");
    }
    const std::string octets = stampedOctets(signature, form, budget);
    for (; part != parts.end(); ++part) {
        if (!isElement(*part, "EncapsulatedTimeStamp", xadesNs)) {
            unknown("the time-stamp holds an element that is not supported: " + shown(fromXml((*part)->name)));
        }
        if (found.size() >= limits::timestampsPerSignature) {
            unknown(tooMany);
        }
        found.push_back({tokenOf(*part), octets, {}, XmlSignatureVerdict::valid});
    }
}

const xmlNode* unsignedSignatureProperties(const SignatureModel& signature) {
    return xadesChild(xadesChild(qualifyingPropertiesOf(signature), "UnsignedProperties"),
                      "UnsignedSignatureProperties");
}

} // namespace

std::string stampedOctets(const SignatureModel& signature, const CanonicalForm& form, CanonicalBudget& budget) {
    std::string octets;
    canonicalize(signature.node->doc, valueOf(signature), form, {}, budget, [&octets](std::string_view piece) {
        octets += piece;
        if (octets.size() > limits::signatureValueOctets) {
            unknown("the signature value is larger than is read for a time-stamp");
        }
    });
    return octets;
}

std::vector<XmlTimestamp> signatureTimestamps(const SignatureModel& signature, CanonicalBudget& budget) {
    std::vector<XmlTimestamp> found;
    const xmlNode* const properties = unsignedSignatureProperties(signature);
    for (const xmlNode* node = properties == nullptr ? nullptr : properties->children; node != nullptr;
         node = node->next) {
        if (!isXades(node, timestampName)) {
            continue;
        }
        if (found.size() >= limits::timestampsPerSignature) {
            found.resize(limits::timestampsPerSignature);
            found.push_back({{}, {}, tooMany, XmlSignatureVerdict::unknown});
            break;
        }
        try {
            readTimestamp(node, signature, budget, found);
        } catch (const Refusal& refusal) {
            found.push_back({{}, {}, refusal.what(), refusal.verdict()});
        }
    }
    return found;
}

bool areTimestampsAlone(const xmlNode* unsignedProperties) {
    const auto all = [](const xmlNode* parent, const auto& fits) {
        for (const xmlNode* node = parent->children; node != nullptr; node = node->next) {
            if (node->type == XML_ELEMENT_NODE && !fits(node)) {
                return false;
            }
        }
        return true;
    };
    return all(unsignedProperties, [&](const xmlNode* kind) {
        return isXades(kind, "UnsignedSignatureProperties") &&
               all(kind, [](const xmlNode* property) { return isXades(property, timestampName); });
    });
}

} // namespace orvik::plugin::xml::internal
