#include "verbs/verify_xml.hpp"

#include "authority_certificates.hpp"
#include "certificates.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "orvik/plugin/xml/xml_document.hpp"

#include <algorithm>
#include <string>

namespace klunortredi::cli {

namespace {

namespace xml = orvik::plugin::xml;

constexpr std::size_t largest = 32UL * 1024 * 1024; // octets: what the framework reads at most, in UTF-16
constexpr std::size_t chunkSize = 1024 * 1024;

/// An XML signature is checked over the whole parsed document; there is no streaming form of it.
std::string readWhole(Input& document) {
    std::string octets;
    std::string chunk(chunkSize, '\0');
    while (document.raw().read(chunk.data(), static_cast<std::streamsize>(chunk.size())), document.raw().gcount() > 0) {
        octets.append(chunk, 0, static_cast<std::size_t>(document.raw().gcount()));
        if (octets.size() > largest) {
            throw Failure(ExitCode::input, "cannot verify " + document.name(), "the document is too large");
        }
    }
    document.check();
    return octets;
}

void addNew(std::vector<std::string>& list, const std::string& text) {
    if (std::find(list.begin(), list.end(), text) == list.end()) {
        list.push_back(text);
    }
}

SignatureVerdict verdictOf(xml::XmlSignatureVerdict verdict) {
    switch (verdict) {
    case xml::XmlSignatureVerdict::valid:
        return SignatureVerdict::valid;
    case xml::XmlSignatureVerdict::invalid:
        return SignatureVerdict::invalid;
    default:
        return SignatureVerdict::unknown;
    }
}

/// Those that cannot be judged for their form have a verdict all the same.
std::vector<Timestamp> timestampsOf(const xml::XmlSignatureResult& signature, TimestampReader& reader) {
    std::vector<Timestamp> all;
    for (const xml::XmlTimestamp& stamp : signature.timestamps) {
        if (stamp.problem.empty()) {
            const auto judged = reader.read({stamp.token}, stamp.octets);
            all.insert(all.end(), judged.begin(), judged.end());
        } else {
            Timestamp timestamp{};
            timestamp.verdict = verdictOf(stamp.form);
            timestamp.reason = stamp.problem;
            all.push_back(timestamp);
        }
    }
    return all;
}

void take(XmlVerdict& verdict, const xml::XmlSignatureResult& signature, TimestampReader& reader) {
    Signer signer;
    signer.verdict = verdictOf(signature.verdict);
    signer.reason = signature.reason;
    signer.digestAlgorithm = signature.digestAlgorithm;
    signer.signingTime = signature.signingTime;
    signer.weak = signature.weak;
    signer.timestamps = timestampsOf(signature, reader);
    if (anyUnknown(signer.timestamps)) {
        addNew(verdict.notChecked, "time-stamp");
    }
    if (!signature.certificate.empty()) {
        signer.certificate = certificateFromDer(signature.certificate);
    }
    verdict.signers.push_back(std::move(signer));
    if (!signature.valid) {
        return;
    }
    for (const auto& part : signature.covered) {
        addNew(verdict.covered, part.path + (part.id.empty() ? "" : " (Id " + part.id + ")"));
    }
    for (const std::string& text : signature.notCovered) {
        addNew(verdict.notChecked, text + " (not signed)");
    }
}

} // namespace

XmlVerdict verifyXml(Input& document, Coverage required, const CertificatePtr& signer,
                     const std::vector<std::string>& further) {
    xml::XmlVerifyOptions options;
    options.allowPartial = required == Coverage::partial;
    options.certificate = signer ? signer->raw() : std::string();
    const std::string octets = readWhole(document);
    xml::XmlDocument parsed(octets.data(), octets.size());
    XmlVerdict verdict;
    TimestampReader reader([&further] { return authorityCandidates(further); });
    for (const auto& signature : xml::verifyXmlSignatures(parsed, nullptr, options)) {
        take(verdict, signature, reader);
    }
    return verdict;
}

} // namespace klunortredi::cli
