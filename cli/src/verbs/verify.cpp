#include "verbs/verbs.hpp"

#include "cms_verification.hpp"
#include "console.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "orvik/plugin/crypto/constant.hpp"

#include "requirement.hpp"
#include "signature_shape.hpp"
#include "signer_chains.hpp"
#include "verbs/verify_xml.hpp"
#include "verify_report.hpp"

#include <algorithm>
#include <memory>

namespace klunortredi::cli {

namespace {

namespace constant = orvik::plugin::crypto::constant;
using orvik::plugin::crypto::exception::SystemException;

constexpr std::size_t headSize = 4096; // octets of a signature that tell its shape

/// A verdict, and the content that may be passed on when it is a good one.
struct Judged {
    Verdict verdict;
    std::unique_ptr<CmsVerification> message; ///< null for XML
};

/// What cannot be read is an input error. Nothing was computed, so a code that would refuse a signature says here only
/// that it could not be judged.
[[noreturn]] void refuseMessage(const std::string& name, std::uint32_t code) {
    const std::string what = "cannot verify " + name;
    const Failure failure = serviceFailure(what, code);
    if (failure.exit() == ExitCode::no) {
        throw Failure(ExitCode::service, what, refusalReason(code), {}, code);
    }
    throw failure;
}

Judged verifyCms(Session& session, const VerifyArguments& arguments, Input& input) {
    input.decoded();
    const SignatureShape shape = signatureShape(input.peek(headSize));
    if (shape == SignatureShape::xml) {
        throw Failure(ExitCode::input, "cannot verify " + input.name(), "this is not a CMS message",
                      "try --format xmldsig");
    }
    // When the head does not tell, the service reads the message and says what is wrong with it.
    const bool detached = shape == SignatureShape::unknown ? arguments.format == constant::signature_detached
                                                           : shape == SignatureShape::detached;
    if (!arguments.format.empty() && detached != (arguments.format == constant::signature_detached)) {
        throw Failure(ExitCode::input, "cannot verify " + input.name(),
                      std::string("the signature is ") + (detached ? "detached" : "attached"));
    }
    Judged judged;
    judged.message = std::make_unique<CmsVerification>(session, arguments, input, detached);
    try {
        judged.verdict = judged.message->run();
    } catch (const SystemException& e) {
        refuseMessage(input.name(), static_cast<std::uint32_t>(e.code().value()));
    }
    return judged;
}

Judged verifyXmlDocument(const VerifyArguments& arguments, Input& input) {
    const std::pair<const char*, bool> ofMessages[] = {{"--content", !arguments.content.empty()},
                                                       {"--extract", !arguments.extract.empty()}};
    for (const auto& [option, given] : ofMessages) {
        if (given) {
            throw Failure(ExitCode::usage, "cannot verify " + input.name(),
                          std::string(option) + " is not for signed XML documents");
        }
    }
    const CertificatePtr given =
        arguments.signerCertificate.empty() ? nullptr : readCertificate(arguments.signerCertificate);
    XmlVerdict xml = verifyXml(input, arguments.allowPartial ? Coverage::partial : Coverage::whole, given);
    Judged judged;
    const bool isSigned = !xml.signers.empty();
    judged.verdict.verdict = isSigned ? SignatureVerdict::valid : SignatureVerdict::invalid; // until signers decide
    judged.verdict.reason = isSigned ? "" : "the document carries no signature";
    judged.verdict.format = constant::signature_xmldsig;
    judged.verdict.signers = std::move(xml.signers);
    judged.verdict.covered = std::move(xml.covered);
    judged.verdict.notChecked = std::move(xml.notChecked);
    if (isSigned && given && !isSigner(*given, judged.verdict.signers)) {
        judged.verdict.verdict = SignatureVerdict::unknown;
        judged.verdict.reason = notOfASigner;
    }
    return judged;
}

/// The first thing that is weak about a signer, or about a certificate of its chain; empty without any.
std::string firstWeakness(const Signer& signer) {
    if (!signer.weak.empty()) {
        return describe(signer.weak.front());
    }
    for (std::size_t i = 0; signer.trust && i < signer.trust->elements.size(); ++i) {
        const TrustElement& element = signer.trust->elements[i];
        if (!element.weak.empty()) {
            return subjectOf(*element.certificate) + ": " + element.weak.front();
        }
    }
    return {};
}

/// With --strict what is weak is refused.
void refuseWeak(std::vector<Signer>& signers) {
    for (Signer& signer : signers) {
        const std::string weakness = firstWeakness(signer);
        if (signer.verdict == SignatureVerdict::valid && !weakness.empty()) {
            signer.verdict = SignatureVerdict::invalid;
            signer.reason = "refused by --strict: " + weakness;
        }
    }
}

/// The signers' share in the verdict; what was found besides them stays when it is graver.
void decide(Verdict& verdict, const Requirement& requirement) {
    const Decision decision = requirement.decide(verdict.signers);
    const bool graver = verdict.verdict == SignatureVerdict::valid ||
                        (verdict.verdict == SignatureVerdict::unknown && decision.verdict == SignatureVerdict::invalid);
    if (graver) {
        verdict.verdict = decision.verdict;
        verdict.reason = decision.reason;
    }
}

ExitCode exitOf(const Verdict& verdict, bool trusted) {
    switch (verdict.verdict) {
    case SignatureVerdict::invalid:
        return ExitCode::no;
    case SignatureVerdict::unknown:
        return ExitCode::service;
    default:
        return trusted ? ExitCode::done : ExitCode::untrusted;
    }
}

Judged judgeFile(Session& session, const VerifyArguments& arguments, Input& input) {
    if (input.peek(1).empty()) {
        input.check();
        throw Failure(ExitCode::input, "cannot verify " + input.name(), "it is empty");
    }
    const bool isXml = arguments.format == constant::signature_xmldsig ||
                       (arguments.format.empty() && signatureShape(input.peek(headSize)) == SignatureShape::xml);
    return isXml ? verifyXmlDocument(arguments, input) : verifyCms(session, arguments, input);
}

ExitCode judge(Session& session, const VerifyArguments& arguments, const Requirement& requirement,
               VerifyReport& report) {
    Input input(arguments.file);
    report.open(input);
    Judged judged = judgeFile(session, arguments, input);
    Verdict& verdict = judged.verdict;
    if (arguments.strict) {
        refuseWeak(verdict.signers);
    }
    decide(verdict, requirement);
    bool trusted = true;
    if (verdict.verdict == SignatureVerdict::valid && arguments.chain) {
        if (arguments.chainOptions.atSigningTime()) {
            session.console.note("klunortredi: --at signing trusts each signer's own statement of the time");
        }
        judgeChains(verdict, arguments.chainOptions);
        if (arguments.strict) {
            refuseWeak(verdict.signers);
            decide(verdict, requirement);
        }
        trusted = decideTrust(verdict, requirement);
    } else if (verdict.verdict == SignatureVerdict::valid) {
        verdict.notChecked.emplace_back("certificate chain");
    }
    const ExitCode exit = exitOf(verdict, trusted);
    if (exit == ExitCode::done && judged.message && judged.message->extraction() != nullptr) {
        judged.message->extraction()->commit();
    }
    report.result(input.name(), verdict);
    if (exit == ExitCode::service) {
        report.unknown(input.name(), verdict.reason);
    }
    return exit;
}

} // namespace

ExitCode verify(Session& session, const VerifyArguments& arguments) {
    if (arguments.file == "-" && arguments.content == "-") {
        throw Failure(ExitCode::usage, "cannot verify", "standard input cannot be both the signature and its content");
    }
    std::vector<std::string> required = arguments.require;
    required.insert(required.end(), arguments.alsoRequire.begin(), arguments.alsoRequire.end());
    const Requirement requirement(required);
    if (!arguments.chain && arguments.chainOptions.any()) {
        throw Failure(ExitCode::usage, "cannot verify",
                      "--at, --with, --anchor, --usage, --require-revocation and "
                      "--offline say how chains are judged",
                      "add --chain");
    }
    VerifyReport report(session, arguments);
    try {
        return judge(session, arguments, requirement, report);
    } catch (...) {
        const Failure failure = currentFailure("cannot verify " + arguments.file);
        report.failure(failure);
        return failure.exit();
    }
}

} // namespace klunortredi::cli
