#include "verbs/verify_xml.hpp"

#include "capi/constants.hpp"
#include "certificates.hpp"
#include "crypto/wincrypt/signature_factory.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/crypto/exception/crypto_exception.hpp"
#include "orvik/plugin/xml/xml_document.hpp"

#include <algorithm>
#include <iterator>
#include <string>

namespace klunortredi::cli {

namespace {

namespace xml = orvik::plugin::xml;

/// An XML signature is checked over the whole parsed document; there is no streaming form of it.
std::string readWhole(Input& document) {
    constexpr std::size_t largest = 256UL * 1024 * 1024;
    std::string octets(document.size() == 0 ? largest + 1 : std::min<std::uint64_t>(document.size(), largest) + 1,
                       '\0');
    document.raw().read(octets.data(), static_cast<std::streamsize>(octets.size()));
    document.check();
    octets.resize(static_cast<std::size_t>(document.raw().gcount()));
    if (octets.size() > largest) {
        throw Failure(ExitCode::input, "cannot verify " + document.name(), "the document is too large");
    }
    return octets;
}

bool accepted(const std::string& octets) {
    const orvik::plugin::wincrypt::SignatureFactory factory(orvik::plugin::crypto::constant::signature_xmldsig);
    const auto validator = factory.validator({});
    validator->initialize(*validator->params());
    validator->update(reinterpret_cast<const unsigned char*>(octets.data()), octets.size());
    std::vector<unsigned char> nothing;
    return validator->finalize(nothing);
}

Signer signer(const xml::XmlSignatureResult& signature) {
    Signer signer;
    if (!signature.certificate.empty()) {
        signer.certificate = certificateFromDer(signature.certificate);
    }
    return signer;
}

std::string reasonOf(const std::vector<xml::XmlSignatureResult>& signatures) {
    const auto refused =
        std::find_if(signatures.begin(), signatures.end(), [](const auto& signature) { return !signature.valid; });
    return refused == signatures.end() ? "the document carries no signature" : refused->reason;
}

std::vector<xml::XmlSignatureResult> signaturesOf(const std::string& octets, const std::string& name) {
    using orvik::plugin::crypto::exception::CryptoException;
    xml::XmlDocument parsed(octets.data(), octets.size());
    try {
        return xml::verifyXmlSignatures(parsed, nullptr);
    } catch (const CryptoException& e) {
        if (e.code().value() != static_cast<int>(CryptoException::Code::algorithmUnsupported)) {
            throw;
        }
        throw serviceFailure("cannot verify " + name, capi::NTE_PROV_TYPE_NOT_DEF);
    }
}

} // namespace

XmlVerdict verifyXml(Input& document) {
    const std::string octets = readWhole(document);
    XmlVerdict verdict;
    verdict.valid = accepted(octets);
    // The validator answers yes or no; who signed, and what is wrong, is asked of the document.
    const auto signatures = signaturesOf(octets, document.name());
    if (verdict.valid) {
        std::transform(signatures.begin(), signatures.end(), std::back_inserter(verdict.signers), signer);
    } else {
        verdict.reason = reasonOf(signatures);
    }
    return verdict;
}

} // namespace klunortredi::cli
