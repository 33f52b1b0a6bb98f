#include "signature_judge.hpp"

#include "capi/constants.hpp"
#include "cms_verification.hpp"
#include "console.hpp"
#include "counter_signatures.hpp"
#include "crypto/wincrypt/exceptions.hpp"
#include "current_failure.hpp"
#include "digest_message.hpp"
#include "extraction.hpp"
#include "input.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "orvik/plugin/exception/exception.hpp"
#include "printable.hpp"
#include "signature_shape.hpp"
#include "signer_chains.hpp"
#include "strict.hpp"
#include "verbs/verify_xml.hpp"

#include <boost/exception/get_error_info.hpp>

#include <memory>
#include <utility>

namespace klunortredi::cli {

namespace {

namespace constant = orvik::plugin::crypto::constant;
using orvik::plugin::crypto::exception::SystemException;

constexpr std::size_t headSize = 4096; // octets of a signature that tell its shape

/// A message beyond a limit may be a good one, so this is not an input error. Returns where no limit is named: lengths
/// that no message has are those of other data.
void refuseLarge(const std::string& what, const SystemException& refusal) {
    if (const auto* limit = boost::get_error_info<orvik::plugin::exception::Message_>(refusal)) {
        throw Failure(ExitCode::service, what, "it has " + printable(*limit),
                      "the limit is the service's, and nothing was judged", capi::CRYPT_E_ASN1_LARGE);
    }
}

/// What cannot be read is an input error. Nothing was computed, so a code that would refuse a signature says here only
/// that it could not be judged.
[[noreturn]] void refuseMessage(const std::string& name, const SystemException& refusal) {
    const std::string what = "cannot verify " + name;
    const auto code = static_cast<std::uint32_t>(refusal.code().value());
    if (code == capi::CRYPT_E_ASN1_LARGE) {
        refuseLarge(what, refusal);
    }
    const Failure failure = serviceFailure(what, code);
    if (failure.exit() == ExitCode::no) {
        throw Failure(ExitCode::service, what, refusalReason(code), {}, code);
    }
    throw failure;
}

/// Whether the message is detached, and not of a format that was not asked for.
bool isDetached(const VerifyArguments& arguments, Input& input) {
    input.decoded();
    const SignatureShape shape = signatureShape(input.peek(headSize));
    if (shape == SignatureShape::xml) {
        throw Failure(ExitCode::input, "cannot verify " + input.name(), "this is not a CMS message",
                      "try --format xmldsig");
    }
    if (contentTypeOf(input.peek(headSize)) == digestedDataType) {
        throw Failure(ExitCode::input, "cannot verify " + input.name(), digestVerdict(input, arguments.content));
    }
    if (const std::string other = otherMessage(input.peek(headSize)); !other.empty()) {
        throw Failure(ExitCode::input, "cannot verify " + input.name(), other);
    }
    // When the head does not tell, the service reads the message and says what is wrong with it.
    const bool detached = shape == SignatureShape::unknown ? arguments.format == constant::signature_detached
                                                           : shape == SignatureShape::detached;
    if (!arguments.format.empty() && detached != (arguments.format == constant::signature_detached)) {
        throw Failure(ExitCode::input, "cannot verify " + input.name(),
                      std::string("the signature is ") + (detached ? "detached" : "attached"));
    }
    return detached;
}

Verdict verifyXmlDocument(const VerifyArguments& arguments, Input& input, const CertificatePtr& given,
                          const std::vector<std::string>& further) {
    const std::pair<const char*, bool> ofMessages[] = {{"--content", !arguments.content.empty()},
                                                       {"--extract", !arguments.extract.empty()}};
    for (const auto& [option, isGiven] : ofMessages) {
        if (isGiven) {
            throw Failure(ExitCode::usage, "cannot verify " + input.name(),
                          std::string(option) + " is not for signed XML documents");
        }
    }
    XmlVerdict xml = verifyXml(input, arguments.allowPartial ? Coverage::partial : Coverage::whole, given, further);
    Verdict verdict;
    const bool isSigned = !xml.signers.empty();
    verdict.verdict = isSigned ? SignatureVerdict::valid : SignatureVerdict::invalid; // until signers decide
    verdict.reason = isSigned ? "" : "the document carries no signature";
    verdict.format = constant::signature_xmldsig;
    verdict.signers = std::move(xml.signers);
    verdict.covered = std::move(xml.covered);
    verdict.notChecked = std::move(xml.notChecked);
    return verdict;
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

/// Whether the file is to be judged as an XML document.
bool isXml(const VerifyArguments& arguments, Input& input) {
    if (input.peek(1).empty()) {
        input.check();
        throw Failure(ExitCode::input, "cannot verify " + input.name(), "it is empty");
    }
    return arguments.format == constant::signature_xmldsig ||
           (arguments.format.empty() && signatureShape(input.peek(headSize)) == SignatureShape::xml);
}

} // namespace

SignatureJudge::SignatureJudge(Session& session, const VerifyArguments& arguments)
    : session_(session), arguments_(arguments),
      signerCertificate_(arguments.signerCertificate.empty() ? nullptr : readCertificate(arguments.signerCertificate)),
      requirement_(arguments.require, signerCertificate_) {
    if (arguments.chain) {
        chainQuery_ = chainQuery(arguments.chainOptions);
    }
    if (arguments.chain && arguments.chainOptions.atSigningTime()) {
        session.console.note("klunortredi: --at signing trusts each signer's own statement of the time");
    }
}

FileReport SignatureJudge::judge(const std::string& file, const Opened& opened) const {
    FileReport report;
    report.name = file == "-" ? "standard input" : file;
    try {
        Input input(file);
        opened(input);
        if (isXml(arguments_, input)) {
            report.verdict = verifyXmlDocument(arguments_, input, signerCertificate_, chainQuery_.certificates);
            report.exit = complete(*report.verdict);
            return report;
        }
        CmsVerification message(session_, arguments_, input, isDetached(arguments_, input), signerCertificate_);
        message.offerCertificates(chainQuery_.certificates);
        report.verdict = verdictOn(message, input.name());
        report.exit = complete(*report.verdict);
        if (report.exit == ExitCode::done && message.extraction() != nullptr) {
            message.extraction()->commit();
        }
    } catch (...) {
        report.failure = currentFailure("cannot verify " + file);
        report.verdict.reset();
        report.exit = report.failure->exit();
    }
    return report;
}

Verdict SignatureJudge::verdictOn(CmsVerification& message, const std::string& name) {
    try {
        return message.run();
    } catch (const SystemException& e) {
        refuseMessage(name, e);
    }
}

/// What the signers and their chains add to the verdict; the exit code that it all comes to.
ExitCode SignatureJudge::complete(Verdict& verdict) const {
    if (arguments_.strict) {
        applyStrict(verdict.signers);
    }
    decide(verdict, requirement_);
    bool trusted = true;
    if (verdict.verdict == SignatureVerdict::valid && arguments_.chain) {
        judgeChains(verdict, chainQuery_, arguments_.chainOptions, requirement_);
        if (arguments_.strict) {
            applyStrict(verdict.signers);
            decide(verdict, requirement_);
        }
        trusted = decideTrust(verdict, requirement_);
    } else if (verdict.verdict == SignatureVerdict::valid) {
        verdict.notChecked.emplace_back("certificate chain");
        const auto stamped = [](const Signer& signer) {
            const Timestamp* const timestamp = deciding(signer.timestamps);
            return timestamp != nullptr && timestamp->verdict == SignatureVerdict::valid;
        };
        if (std::any_of(verdict.signers.begin(), verdict.signers.end(), stamped)) {
            verdict.notChecked.emplace_back("certificate chain of the time-stamp authority");
        }
        const auto counterSigned = [](const Signer& signer) { return anyValid(signer.counters); };
        if (std::any_of(verdict.signers.begin(), verdict.signers.end(), counterSigned)) {
            verdict.notChecked.emplace_back("certificate chain of the counter-signer");
        }
    }
    return exitOf(verdict, trusted);
}

} // namespace klunortredi::cli
