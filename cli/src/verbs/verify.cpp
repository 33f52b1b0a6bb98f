#include "verbs/verbs.hpp"

#include "capi/constants.hpp"
#include "certificates.hpp"
#include "console.hpp"
#include "crypto/wincrypt/tools_verify.hpp"
#include "crypto/wincrypt/wincrypt_handler.hpp"
#include "current_failure.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "options.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "output_file.hpp"
#include "printable.hpp"
#include "progress.hpp"
#include "service_words.hpp"
#include "signature_shape.hpp"
#include "signers.hpp"
#include "text.hpp"
#include "trust.hpp"
#include "verbs/verify_xml.hpp"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>
#include <memory>

namespace klunortredi::cli {

namespace {

using Json = nlohmann::ordered_json;
namespace constant = orvik::plugin::crypto::constant;
namespace wincrypt = orvik::plugin::wincrypt;

constexpr std::size_t headSize = 4096; // octets of a signature that tell its shape

struct Verdict {
    bool valid = false;
    std::string format;
    std::string reason;
    std::vector<Signer> signers;
    std::vector<std::string> covered; ///< parts of an XML document that are signed
    std::vector<std::string> notChecked;
    std::optional<Trust> trust;
};

/// Compares what a message carries with a file that it is said to carry.
class Comparison {
public:
    explicit Comparison(Input& expected) : expected_(expected.raw()) {}

    void take(std::string_view octets) {
        buffer_.resize(octets.size());
        expected_.read(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
        const auto got = static_cast<std::size_t>(expected_.gcount());
        same_ = same_ && octets == std::string_view(buffer_.data(), got);
    }
    [[nodiscard]] bool same() { return same_ && expected_.peek() == std::istream::traits_type::eof(); }

private:
    std::istream& expected_;
    std::string buffer_;
    bool same_ = true;
};

/// Where the content of a detached signature lies when nobody says: "x" beside "x.sig".
std::string contentBeside(const std::string& file) {
    const auto dot = file.rfind('.');
    const auto slash = file.rfind('/');
    if (dot == std::string::npos || dot == 0 || (slash != std::string::npos && dot <= slash + 1)) {
        return {};
    }
    const std::string candidate = file.substr(0, dot);
    return ::access(candidate.c_str(), F_OK) == 0 ? candidate : std::string{};
}

class CmsVerification {
public:
    CmsVerification(Session& session, const VerifyArguments& arguments, Input& signature, bool detached)
        : session_(session), arguments_(arguments), signature_(signature), detached_(detached) {
        verdict_.format = detached ? constant::signature_detached : constant::signature_attached;
        if (!arguments.signerCertificate.empty()) {
            outside_ = readCertificate(arguments.signerCertificate);
        }
    }

    Verdict run() {
        openContent();
        if (!arguments_.extract.empty()) {
            extracted_ = std::make_unique<OutputFile>(arguments_.extract, session_.options.force);
        }
        Progress progress(session_.console.showsProgress(), "verifying " + signature_.name(),
                          detached_ ? content_->size() : signature_.size());
        (detached_ ? *content_ : signature_).watch([&progress](std::uint64_t n) { progress.advance(n); });

        wincrypt::SetLastErrorEx(0);
        const boost::optional<std::istream&> content =
            detached_ ? boost::optional<std::istream&>(content_->raw()) : boost::none;
        verdict_.valid = wincrypt::tools::verify(signature_.decoded(), content, hooks());
        const auto refusal = wincrypt::GetLastErrorEx();
        signature_.check();
        if (content_) {
            content_->check();
        }
        if (!verdict_.valid) {
            explain(refusal);
            return std::move(verdict_);
        }
        judgeOthers();
        if (verdict_.valid && comparison_ && !comparison_->same()) {
            verdict_.valid = false;
            verdict_.reason = "the signature's own content is not " + arguments_.content;
        }
        if (verdict_.valid && extracted_) {
            extracted_->commit();
        }
        return std::move(verdict_);
    }

private:
    void openContent() {
        if (!detached_) {
            if (!arguments_.content.empty()) {
                content_ = std::make_unique<Input>(arguments_.content);
                comparison_ = std::make_unique<Comparison>(*content_);
            }
            return;
        }
        if (!arguments_.extract.empty()) {
            throw Failure(ExitCode::usage, "cannot extract from " + signature_.name(),
                          "a detached signature has no content");
        }
        std::string path = arguments_.content;
        if (path.empty()) {
            path = contentBeside(arguments_.file);
            if (path.empty()) {
                throw Failure(ExitCode::input, "cannot verify " + signature_.name(),
                              "it is detached, and its content is not beside it", "name the content with --content");
            }
            session_.console.note("klunortredi: checking against " + path);
        }
        content_ = std::make_unique<Input>(path);
    }

    wincrypt::tools::VerifyHooks hooks() {
        wincrypt::tools::VerifyHooks hooks;
        hooks.certificate = outside_;
        hooks.inspect = [this](void* message) { verdict_.signers = readSigners(message, outside_); };
        if (extracted_ || comparison_) {
            hooks.content = [this](const unsigned char* data, std::size_t size) {
                const std::string_view octets(reinterpret_cast<const char*>(data), size);
                if (extracted_) {
                    extracted_->write(octets);
                }
                if (comparison_) {
                    comparison_->take(octets);
                }
                return true;
            };
        }
        return hooks;
    }

    /// A refused signature is a verdict; data that is no message at all is an input error, and what the machine lacks
    /// is an error of its own.
    void explain(std::uint32_t code) {
        const Failure failure = serviceFailure("cannot verify " + signature_.name(), code);
        if (failure.exit() == ExitCode::input || isOfTheMachine(code)) {
            throw failure;
        }
        const bool noCertificate = code == capi::CRYPT_E_NOT_FOUND || code == capi::CRYPT_E_SIGNER_NOT_FOUND;
        verdict_.reason = !noCertificate ? refusalReason(code)
                          : outside_     ? "the certificate given with --signer-cert is not the signer's"
                                         : "the signer's certificate is not in the message; name it with --signer-cert";
    }

    void judgeOthers() {
        for (std::size_t i = 0; i < verdict_.signers.size(); ++i) {
            const Signer& signer = verdict_.signers[i];
            if (signer.refusal != 0) {
                if (isOfTheMachine(signer.refusal)) {
                    explain(signer.refusal);
                }
                verdict_.valid = false;
                verdict_.reason = "signer " + std::to_string(i + 1) + ": " + refusalReason(signer.refusal);
            }
            if (signer.timestamped) {
                verdict_.notChecked.emplace_back("time-stamp");
            }
        }
    }

    Session& session_;
    const VerifyArguments& arguments_;
    Input& signature_;
    bool detached_;
    CertificatePtr outside_;
    std::unique_ptr<Input> content_;
    std::unique_ptr<Comparison> comparison_;
    std::unique_ptr<OutputFile> extracted_;
    Verdict verdict_;
};

Json signerJson(const Signer& signer) {
    const bool known = signer.certificate != nullptr;
    return {{"subject", known ? subjectOf(*signer.certificate) : std::string{}},
            {"serial", known ? serialOf(*signer.certificate) : std::string{}},
            {"thumbprint", known ? thumbprintOf(*signer.certificate) : std::string{}},
            {"signing_time", text::time(signer.signingTime)},
            {"digest_algorithm", signer.digestAlgorithm}};
}

void print(std::ostream& out, const std::string& name, const Verdict& verdict) {
    out << printable(name) << ": "
        << (verdict.valid ? "valid " + verdict.format + " signature" : "INVALID: " + printable(verdict.reason)) << '\n';
    for (const Signer& signer : verdict.signers) {
        if (signer.certificate) {
            out << "  signer       " << titleOf(*signer.certificate) << '\n';
            out << "  serial       " << serialOf(*signer.certificate) << '\n';
            out << "  thumbprint   " << thumbprintOf(*signer.certificate) << '\n';
        } else {
            out << "  signer       unknown: the signature carries a key and no certificate\n";
        }
        const std::string time = text::time(signer.signingTime);
        out << "  signing time " << (time.empty() ? "not stated" : time + " (the signer's own statement)") << '\n';
    }
    if (verdict.trust) {
        out << "  chain        " << describe(*verdict.trust) << '\n';
    }
    for (const std::string& part : verdict.covered) {
        out << "  covered      " << (part == "/" ? "the whole document" : printable(part)) << '\n';
    }
    if (!verdict.notChecked.empty()) {
        out << "  not checked  " << printable(text::joined(verdict.notChecked)) << '\n';
    }
}

Verdict verifyCms(Session& session, const VerifyArguments& arguments, Input& input) {
    input.decoded();
    const SignatureShape shape = signatureShape(input.peek(headSize));
    if (shape == SignatureShape::xml) {
        throw Failure(ExitCode::input, "cannot verify " + input.name(), "this is no CMS message",
                      "try --format xmldsig");
    }
    // When the head does not tell, the service reads the message and says what is wrong with it.
    const bool detached = shape == SignatureShape::unknown ? arguments.format == constant::signature_detached
                                                           : shape == SignatureShape::detached;
    if (!arguments.format.empty() && detached != (arguments.format == constant::signature_detached)) {
        throw Failure(ExitCode::input, "cannot verify " + input.name(),
                      std::string("the signature is ") + (detached ? "detached" : "attached"));
    }
    return CmsVerification(session, arguments, input, detached).run();
}

Verdict verifyXmlDocument(const VerifyArguments& arguments, Input& input) {
    const std::pair<const char*, bool> ofMessages[] = {{"--content", !arguments.content.empty()},
                                                       {"--extract", !arguments.extract.empty()},
                                                       {"--signer-cert", !arguments.signerCertificate.empty()}};
    for (const auto& [option, given] : ofMessages) {
        if (given) {
            throw Failure(ExitCode::usage, "cannot verify " + input.name(),
                          std::string(option) + " is not for signed XML documents");
        }
    }
    XmlVerdict xml = verifyXml(input, arguments.allowPartial ? Coverage::partial : Coverage::whole);
    Verdict verdict;
    verdict.valid = xml.valid;
    verdict.format = constant::signature_xmldsig;
    verdict.reason = std::move(xml.reason);
    verdict.signers = std::move(xml.signers);
    verdict.covered = std::move(xml.covered);
    verdict.notChecked = std::move(xml.notChecked);
    return verdict;
}

/// Of several signers' chains the first that is not trusted, for one is enough not to rely on the whole.
Trust judgeChains(const std::vector<Signer>& signers) {
    Trust trust;
    for (const Signer& signer : signers) {
        // A key that nobody certified has no chain at all.
        trust = signer.certificate ? judgeChain(*signer.certificate, {})
                                   : Trust{false, capi::CERT_TRUST_IS_PARTIAL_CHAIN, {"CERT_TRUST_IS_PARTIAL_CHAIN"}};
        if (!trust.trusted) {
            break;
        }
    }
    return trust;
}

} // namespace

ExitCode verify(Session& session, const VerifyArguments& arguments) {
    if (arguments.file == "-" && arguments.content == "-") {
        throw Failure(ExitCode::usage, "cannot verify", "standard input cannot be both the signature and its content");
    }
    Input input(arguments.file);
    Verdict verdict;
    if (input.peek(1).empty()) {
        input.check();
        throw Failure(ExitCode::input, "cannot verify " + input.name(), "it is empty");
    }
    if (arguments.format == constant::signature_xmldsig ||
        (arguments.format.empty() && signatureShape(input.peek(headSize)) == SignatureShape::xml)) {
        verdict = verifyXmlDocument(arguments, input);
    } else {
        verdict = verifyCms(session, arguments, input);
    }
    if (verdict.valid && arguments.chain) {
        verdict.trust = judgeChains(verdict.signers);
    } else if (verdict.valid) {
        verdict.notChecked.emplace_back("certificate chain");
    }

    Json signers = Json::array();
    std::transform(verdict.signers.begin(), verdict.signers.end(), std::back_inserter(signers), signerJson);
    session.console.result({{"valid", verdict.valid},
                            {"format", verdict.format},
                            {"reason", verdict.reason},
                            {"signers", signers},
                            {"timestamp", nullptr},
                            {"chain", verdict.trust ? Json(toJson(*verdict.trust)) : Json(nullptr)},
                            {"covered", verdict.covered},
                            {"not_checked", verdict.notChecked}},
                           [&](std::ostream& out) { print(out, input.name(), verdict); });
    if (!verdict.valid) {
        return ExitCode::no;
    }
    return verdict.trust && !verdict.trust->trusted ? ExitCode::untrusted : ExitCode::done;
}

} // namespace klunortredi::cli
