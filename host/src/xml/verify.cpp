#include "coverage.hpp"
#include "gost_engine.hpp"
#include "libxml.hpp"
#include "limits.hpp"
#include "orvik/plugin/xml/xml_document.hpp"
#include "references.hpp"
#include "refusal.hpp"
#include "signature_algorithms.hpp"
#include "signature_model.hpp"
#include "signature_timestamps.hpp"
#include "signed_properties.hpp"
#include "signer.hpp"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace orvik::plugin::xml {

namespace {

using namespace internal; // NOLINT(google-build-using-namespace): the parts of this check

/// A document whose signatures are being checked.
struct Check {
    const xmlDoc* document;
    const XmlVerifyOptions& options;
    Targets targets;
    DocumentFindings findings;
    CanonicalBudget budget{limits::canonicalOctets, limits::canonicalSteps};
    std::size_t keysLeft = limits::keysTried;
};

std::vector<const xmlNode*> targetsOf(const SignatureModel& signature, const Targets& targets) {
    std::vector<const xmlNode*> found;
    for (const Reference& reference : signature.references) {
        found.push_back(targets.of(reference));
    }
    return found;
}

/// What the signature's value is over.
std::string signedDigest(const SignatureModel& signature, const DigestAlgorithm& algorithm) {
    CanonicalBudget budget{limits::signedInfoOctets, limits::canonicalSteps};
    Digest digest(algorithm);
    canonicalize(signature.node->doc, signature.signedInfo, signature.form, {}, budget,
                 [&digest](std::string_view octets) { digest.update(octets); });
    return digest.finish();
}

void addWeak(const crypto::UsedAlgorithms& used, std::vector<crypto::Weakness>& weak) {
    // The time of the signature is not known: a signer can state any.
    for (const crypto::Weakness& found : crypto::weaknesses(used, {})) {
        if (std::none_of(weak.begin(), weak.end(),
                         [&](const auto& known) { return std::string_view(known.name) == found.name; })) {
            weak.push_back(found);
        }
    }
}

std::vector<crypto::Weakness> weakOf(const SignatureModel& signature, const DigestAlgorithm& digest,
                                     const FoundSigner& signer) {
    std::vector<crypto::Weakness> weak;
    addWeak({digest.oid, signer.keyOid, signer.keyBits}, weak);
    for (const Reference& reference : signature.references) {
        addWeak({digestAlgorithm(reference.digestMethod)->oid, {}, 0}, weak);
    }
    return weak;
}

void describe(const FoundSigner& signer, const SignedProperties& properties, const Coverage& coverage,
              XmlSignatureResult& result) {
    result.certificate = signer.certificate;
    result.certificateProtected = signer.certificateProtected;
    result.signingTime = properties.signingTime;
    result.wholeDocument = coverage.gap.empty();
    result.covered = coverage.parts;
    result.notCovered = coverage.notCovered;
    if (!signer.certificate.empty() && !signer.certificateProtected) {
        result.notCovered.emplace_back("the signer's certificate");
    }
}

/// Fills the result; throws Refusal when the signature is not valid.
void judge(const SignatureModel& signature, Check& check, XmlSignatureResult& result) {
    const auto targets = targetsOf(signature, check.targets);
    const SignatureAlgorithm* const algorithm = signatureAlgorithm(signature.method);
    for (std::size_t i = 0; i < targets.size(); ++i) {
        checkReference(signature.references[i], signature, targets[i], check.budget);
    }
    if (algorithm == nullptr) {
        unknown("the signature uses an algorithm that is not supported: " + shown(signature.method));
    }
    const DigestAlgorithm& digest = digestAlgorithm(algorithm->digest);
    result.digestAlgorithm = digest.oid;
    const SignedProperties properties = signedProperties(signature, targets);
    const std::string over = signedDigest(signature, digest);
    const FoundSigner signer =
        findSigner({signature, targets, *algorithm, over, properties, check.keysLeft}, check.options);
    const Coverage coverage = coverageOf(signature, targets, check.findings);
    describe(signer, properties, coverage, result);
    result.timestamps = signatureTimestamps(signature, check.budget);
    result.weak = weakOf(signature, digest, signer);
    const auto broken = std::find_if(result.weak.begin(), result.weak.end(), [](const crypto::Weakness& weakness) {
        return weakness.level == crypto::WeaknessLevel::never;
    });
    if (broken != result.weak.end()) {
        invalid(std::string(broken->name) + ": " + broken->reason);
    }
    if (!result.wholeDocument && !check.options.allowPartial) {
        invalid(coverage.gap);
    }
}

XmlSignatureResult refused(const Refusal& refusal, XmlSignatureResult result = {}) {
    result.valid = false;
    result.verdict = refusal.verdict();
    result.reason = refusal.what();
    return result;
}

XmlSignatureResult resultOf(const SignatureModel& signature, Check& check) {
    XmlSignatureResult result;
    try {
        judge(signature, check, result);
        result.valid = true;
        result.verdict = XmlSignatureVerdict::valid;
        return result;
    } catch (const Refusal& refusal) {
        return refused(refusal, std::move(result));
    }
}

/// Without the engine a GOST signature cannot be judged.
void requireEngineFor(const SignatureModel& signature) {
    const bool needed = needsGostEngine(signature.method) ||
                        std::any_of(signature.references.begin(), signature.references.end(),
                                    [](const Reference& one) { return needsGostEngine(one.digestMethod); });
    if (needed && gostEngine() == nullptr) {
        unknown("OpenSSL's GOST engine is not installed; install the package libengine-gost-openssl");
    }
}

/// A signature as read, or why it could not be.
struct Read {
    std::optional<SignatureModel> model;
    XmlSignatureResult refusal;
};

Read read(const xmlNode* signature) {
    try {
        Read one{readSignature(signature), {}};
        requireEngineFor(*one.model);
        return one;
    } catch (const Refusal& refusal) {
        return {{}, refused(refusal)};
    }
}

std::vector<SignatureModel> modelsOf(const std::vector<Read>& all) {
    std::vector<SignatureModel> models;
    std::size_t references = 0;
    for (const Read& one : all) {
        if (one.model) {
            references += one.model->references.size();
            models.push_back(*one.model);
        }
    }
    if (references > limits::references) {
        refuseDocument("the XML document has more references in its signatures than are computed here");
    }
    return models;
}

} // namespace

std::vector<XmlSignatureResult> verifyXmlSignatures(XmlDocument& document,
                                                    const boost::shared_ptr<crypto::IProvider>& provider) {
    return verifyXmlSignatures(document, provider, {});
}

std::vector<XmlSignatureResult> verifyXmlSignatures(XmlDocument& document,
                                                    const boost::shared_ptr<crypto::IProvider>& /*provider*/,
                                                    const XmlVerifyOptions& options) {
    const SilentErrors silent;
    gostEngine(); // before any certificate is read: their keys are decoded with it
    const auto* const native = static_cast<const xmlDoc*>(document.native());
    const auto nodes = signatureNodes(native);
    if (nodes.size() > limits::signatures) {
        refuseDocument("the XML document has more signatures than are checked here");
    }
    std::vector<Read> all;
    std::transform(nodes.begin(), nodes.end(), std::back_inserter(all), read);
    const auto models = modelsOf(all);
    Check check{native, options, Targets(native, models), lookAt(native)};
    std::vector<XmlSignatureResult> results;
    for (const Read& one : all) {
        results.push_back(one.model ? resultOf(*one.model, check) : one.refusal);
    }
    return results;
}

} // namespace orvik::plugin::xml
