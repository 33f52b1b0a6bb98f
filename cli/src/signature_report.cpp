#include "signature_report.hpp"

#include "printable.hpp"
#include "text.hpp"
#include "verdict_words.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <string>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;

/// What signers and counter-signers have in common.
Json commonJson(const JudgedSignature& signature) {
    const bool known = signature.certificate != nullptr;
    return {{"subject", known ? subjectOf(*signature.certificate) : std::string{}},
            {"issuer", known ? text::name(signature.certificate->issuerNameInfo()) : std::string{}},
            {"serial", known ? serialOf(*signature.certificate) : std::string{}},
            {"thumbprint", known ? thumbprintOf(*signature.certificate) : std::string{}},
            {"signing_time", text::time(signature.signingTime)},
            {"digest_algorithm", signature.digestAlgorithm},
            {"valid", truth(signature.verdict)},
            {"verdict", jsonWord(signature.verdict)},
            {"reason", signature.reason},
            {"chain", signature.trust ? toJson(*signature.trust) : Json(nullptr)},
            {"chain_time", text::time(signature.chainTime)},
            {"weak", weakList(signature.weak)}};
}

Json countersJson(const std::vector<JudgedSignature>& counters) {
    Json list = Json::array();
    for (const JudgedSignature& counter : counters) {
        Json json = commonJson(counter);
        json["counter_signatures"] = countersJson(counter.counters);
        list.push_back(std::move(json));
    }
    return list;
}

void printWeak(std::ostream& out, const JudgedSignature& signature, const std::string& indent) {
    for (const Weakness& weakness : signature.weak) {
        out << indent << "weak: " << describe(weakness) << '\n';
    }
}

void printChain(std::ostream& out, const JudgedSignature& signature, const std::string& indent) {
    if (!signature.trust) {
        return;
    }
    for (const TrustElement& element : signature.trust->elements) {
        for (const std::string& weak : element.weak) {
            out << indent << "weak: certificate of " << titleOf(*element.certificate) << ": " << printable(weak)
                << '\n';
        }
    }
    const std::string at = text::time(signature.chainTime);
    out << indent << "chain        " << printable(describe(*signature.trust)) << (at.empty() ? "" : ", at " + at)
        << '\n';
    out << indent << "revocation   " << printable(describe(signature.trust->revocation)) << '\n';
}

/// Each under what it covers, further in.
void printCounters(std::ostream& out, const std::vector<JudgedSignature>& counters, const std::string& indent) {
    for (const JudgedSignature& counter : counters) {
        const std::string time = text::time(counter.signingTime);
        out << indent << "counter-signed by "
            << (counter.certificate ? titleOf(*counter.certificate) : std::string("an unknown signer")) << ": "
            << spokenWord(counter.verdict);
        if (counter.verdict != SignatureVerdict::valid) {
            out << ": " << printable(counter.reason);
        } else if (!time.empty()) {
            out << ", " << time << " (its signer's own statement)";
        }
        out << '\n';
        const std::string within = indent + "  ";
        printWeak(out, counter, within);
        printChain(out, counter, within);
        printCounters(out, counter.counters, within);
    }
}

} // namespace

Json toJson(const Signer& signer) {
    Json json = commonJson(signer);
    json["timestamp"] = toJson(deciding(signer.timestamps));
    json["timestamps"] = toJson(signer.timestamps);
    json["counter_signatures"] = countersJson(signer.counters);
    return json;
}

void print(std::ostream& out, const Signer& signer, bool alone) {
    const std::string indent = "  ";
    if (signer.certificate) {
        out << "  signer       " << titleOf(*signer.certificate) << '\n';
    } else {
        out << "  signer       unknown: its certificate is missing\n";
    }
    if (signer.verdict != SignatureVerdict::valid) {
        out << "  verdict      " << headline(signer.verdict, signer.reason) << '\n';
    } else if (!alone) {
        out << "  verdict      valid\n";
    }
    if (signer.certificate) {
        out << "  issuer       " << printableName(text::name(signer.certificate->issuerNameInfo())) << '\n';
        out << "  serial       " << serialOf(*signer.certificate) << '\n';
        out << "  thumbprint   " << thumbprintOf(*signer.certificate) << '\n';
    }
    const std::string time = text::time(signer.signingTime);
    out << "  signing time " << (time.empty() ? "not stated" : time + " (the signer's own statement)") << '\n';
    printWeak(out, signer, indent);
    print(out, signer.timestamps);
    printCounters(out, signer.counters, indent);
    printChain(out, signer, indent);
}

} // namespace klunortredi::cli
