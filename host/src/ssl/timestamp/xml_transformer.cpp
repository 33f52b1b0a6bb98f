#include "authorities.hpp"
#include "crypto/oids.hpp"
#include "orvik/plugin/ssl/cadest_transformers.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "requirements.hpp"
#include "transport.hpp"
#include "xml/canonical.hpp"
#include "xml/limits.hpp"
#include "xml/references.hpp"
#include "xml/refusal.hpp"
#include "xml/signature_algorithms.hpp"
#include "xml/signature_timestamps.hpp"
#include "xml/xades_writer.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace orvik::plugin::ssl::cadest::xmldsig {

namespace {

namespace oids = crypto::oids;
using namespace xml::internal; // NOLINT(google-build-using-namespace): the parts of a signature

// Of the digests of signatures those that time-stamps are still made with; SHA-256 stands for all others.
constexpr std::array imprintDigests = {oids::hashGost2012_256, oids::hashGost2012_512, oids::sha256, oids::sha384,
                                       oids::sha512};

std::string imprintDigest(const SignatureModel& signature) {
    const SignatureAlgorithm* const algorithm = signatureAlgorithm(signature.method);
    const std::string_view own = algorithm == nullptr ? std::string_view() : digestAlgorithm(algorithm->digest).oid;
    const bool usable = std::find(imprintDigests.begin(), imprintDigests.end(), own) != imprintDigests.end();
    return usable ? std::string(own) : oids::sha256;
}

/// The document's only signature. Throws CryptoException unknownFormat, Refusal when its form is not one that is read.
SignatureModel onlySignature(const xmlDoc* document) {
    const auto nodes = signatureNodes(document);
    if (nodes.empty()) {
        refuseDocument("the XML document carries no signature to put a time-stamp on");
    }
    if (nodes.size() > 1) {
        refuseDocument(
            "the XML document carries several signatures: a time-stamp on one can change what another covers");
    }
    return readSignature(nodes.front());
}

void stamp(xmlDoc* document, const std::string& addresses, const crypto::cadest::TimestampTools& tools) {
    const SignatureModel signature = onlySignature(document);
    const Targets all(document, {signature});
    std::vector<const xmlNode*> targets;
    for (const Reference& reference : signature.references) {
        targets.push_back(all.of(reference));
    }
    const xmlNodePtr place = timestampPlace(signature, targets);
    CanonicalBudget budget{limits::canonicalOctets, limits::canonicalSteps};
    const std::string octets = stampedOctets(signature, {}, budget);
    const std::string digest = imprintDigest(signature);
    const std::string token =
        internal::fromFirstAuthority(addresses, [&](const std::string& address, const std::string& nonce) {
            const std::string request = tools.makeRequestFor(octets, digest, nonce);
            return tools.tokenFor(octets, digest, internal::exchangeTimestamp(address, request), nonce);
        });
    addTimestamp(place, token);
}

} // namespace

Transformer::~Transformer() = default;

bool Transformer::updateImpl(const unsigned char* data, std::size_t size, std::size_t* consumed) {
    if (data != nullptr) {
        document_.append(reinterpret_cast<const char*>(data), size);
    }
    if (consumed != nullptr) {
        *consumed = size;
    }
    return true;
}

bool Transformer::finalizeImpl(std::vector<unsigned char>& out) {
    const auto tools = internal::requireTools();
    internal::requireInput(!document_.empty(), "there is no signature to put a time-stamp on");
    const xml::XmlDocument document(document_.data(), document_.size());
    auto* const native = static_cast<xmlDoc*>(document.native());
    try {
        stamp(native, authority(), *tools);
    } catch (const Refusal& refusal) {
        refuseDocument(std::string("no time-stamp can be put on the signature: ") + refusal.what());
    }
    const std::string text = serialized(native);
    out.assign(text.begin(), text.end());
    document_.clear();
    return true;
}

} // namespace orvik::plugin::ssl::cadest::xmldsig
