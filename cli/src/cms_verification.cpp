#include "cms_verification.hpp"

#include "console.hpp"
#include "counter_signatures.hpp"
#include "failure.hpp"
#include "input.hpp"
#include "message_octets.hpp"
#include "options.hpp"
#include "orvik/plugin/crypto/constant.hpp"
#include "progress.hpp"
#include "text.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <istream>

namespace klunortredi::cli {

namespace {

namespace constant = orvik::plugin::crypto::constant;
namespace wincrypt = orvik::plugin::wincrypt;

/// Labels of PEM blocks that hold messages (RFC 7468, 9 and 10; the last two as old programs write them).
constexpr std::array<std::string_view, 4> messageLabels = {"CMS", "PKCS7", "PKCS #7 SIGNED DATA", "SIGNED MESSAGE"};

std::string placeOf(const Surroundings& around) {
    if (around.textBefore && around.textAfter) {
        return "before and after";
    }
    return around.textBefore ? "before" : "after";
}

} // namespace

CmsVerification::CmsVerification(Session& session, const VerifyArguments& arguments, Input& signature, bool detached,
                                 CertificatePtr signerCertificate)
    : session_(session), arguments_(arguments), signature_(signature), detached_(detached),
      outside_(std::move(signerCertificate)) {
    verdict_.format = detached ? constant::signature_detached : constant::signature_attached;
}

CmsVerification::~CmsVerification() = default;

std::string CmsVerification::contentBeside(const std::string& file) {
    const auto dot = file.rfind('.');
    const auto slash = file.rfind('/');
    if (dot == std::string::npos || dot == 0 || (slash != std::string::npos && dot <= slash + 1)) {
        return {};
    }
    const std::string candidate = file.substr(0, dot);
    struct stat status {};
    return ::stat(candidate.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? candidate : std::string{};
}

Verdict CmsVerification::run() {
    openContent();
    if (!arguments_.extract.empty()) {
        extraction_ = std::make_unique<Extraction>(arguments_.extract, session_.options.force, signature_);
    }
    const auto verdicts = check();
    judgeSigners(verdicts);
    verdict_.verdict = SignatureVerdict::valid;
    if (comparison_ && !comparison_->same()) {
        verdict_.verdict = SignatureVerdict::invalid;
        verdict_.reason = "the signature's own content is not " + arguments_.content;
    }
    return std::move(verdict_);
}

void CmsVerification::openContent() {
    if (!detached_) {
        if (!arguments_.content.empty()) {
            content_ = std::make_unique<Input>(arguments_.content);
            comparison_ = std::make_unique<Comparison>(content_->raw());
        }
        return;
    }
    if (!arguments_.extract.empty()) {
        throw Failure(ExitCode::usage, "cannot extract from " + signature_.name(),
                      "a detached signature has no content");
    }
    std::string path = arguments_.content;
    if (path.empty()) {
        path = contentBeside(signature_.path());
        if (path.empty()) {
            throw Failure(ExitCode::input, "cannot verify " + signature_.name(),
                          "it is detached, and its content is not beside it", "name the content with --content");
        }
        session_.console.note("klunortredi: checking against " + path);
    }
    content_ = std::make_unique<Input>(path);
}

/// Has the service judge every signer while the octets pass.
std::vector<SignerVerdict> CmsVerification::check() {
    Progress progress(session_.console.showsProgress(), "verifying " + signature_.name(),
                      detached_ ? content_->size() : signature_.size());
    (detached_ ? *content_ : signature_).watch([&progress](std::uint64_t n) { progress.advance(n); });

    wincrypt::tools::VerifyHooks hooks;
    hooks.certificate = outside_;
    hooks.inspect = [this](void* message) {
        verdict_.signers = readSigners(message, offered_ == nullptr ? std::vector<std::string>{} : *offered_);
        if (arguments_.chain) {
            verdict_.certificates = readCertificates(message);
            verdict_.crls = readCrls(message);
        }
    };
    if (extraction_ || comparison_ || watcher_) {
        hooks.content = [this](const unsigned char* data, std::size_t size) {
            return take({reinterpret_cast<const char*>(data), size});
        };
    }
    MessageOctets octets(*signature_.decoded().rdbuf());
    std::istream message(&octets);
    const boost::optional<std::istream&> content =
        detached_ ? boost::optional<std::istream&>(content_->raw()) : boost::none;
    std::vector<SignerVerdict> verdicts;
    try {
        verdicts = wincrypt::tools::verifySigners(message, content, hooks);
    } catch (...) {
        signature_.check(); // a failed read, and a failed write, look like a damaged message to the service
        if (content_) {
            content_->check();
        }
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        throw;
    }
    const Tail tail = octets.tail(); // reads to the end of the signature's file or block
    signature_.check();
    if (content_) {
        content_->check();
    }
    if (failure_) {
        std::rethrow_exception(failure_);
    }
    lookAround(tail);
    return verdicts;
}

/// Content of an attached signature; false stops the check.
bool CmsVerification::take(std::string_view octets) {
    try {
        if (extraction_) {
            extraction_->write(octets);
        }
        if (comparison_) {
            comparison_->take(octets);
        }
        if (watcher_) {
            watcher_(octets);
        }
        return true;
    } catch (...) {
        failure_ = std::current_exception(); // the service must not see it
        return false;
    }
}

/// What stands beside the message in its file is named, or refused where it could be taken for what was judged.
void CmsVerification::lookAround(Tail tail) {
    if (tail == Tail::octets) {
        throw Failure(ExitCode::input, "cannot verify " + signature_.name(),
                      "octets follow the message, and its signature does not cover them");
    }
    if (tail == Tail::lineEnd) {
        verdict_.notChecked.emplace_back("a line end after the message");
    }
    const Surroundings around = signature_.surroundings();
    if (around.textBefore || around.textAfter) {
        verdict_.notChecked.push_back("text " + placeOf(around) + " the PEM block is not signed");
    }
    if (around.moreBlocks) {
        throw Failure(ExitCode::input, "cannot verify " + signature_.name(),
                      "more than " + std::to_string(around.blocks.size()) + " PEM blocks follow the message",
                      "put the message into a file of its own");
    }
    for (const std::string& label : around.blocks) {
        const bool isMessage = label == signature_.label() ||
                               std::find(messageLabels.begin(), messageLabels.end(), label) != messageLabels.end();
        if (isMessage) {
            throw Failure(ExitCode::input, "cannot verify " + signature_.name(),
                          "it has several PEM blocks that hold messages", "put each into a file of its own");
        }
        verdict_.notChecked.push_back("the PEM block " + label + " after the message is not signed");
    }
}

void CmsVerification::judgeSigners(const std::vector<SignerVerdict>& verdicts) {
    verdict_.signers.resize(verdicts.size()); // equal already, but for a service that contradicts itself
    bool timestampUnknown = false;
    bool counterUnknown = false;
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        judge(verdict_.signers[i], verdicts[i], outside_);
        timestampUnknown = timestampUnknown || anyUnknown(verdict_.signers[i].timestamps);
        counterUnknown = counterUnknown || anyUnknown(verdict_.signers[i].counters);
    }
    if (timestampUnknown) {
        verdict_.notChecked.emplace_back("time-stamp");
    }
    if (counterUnknown) {
        verdict_.notChecked.emplace_back("counter-signature");
    }
}

} // namespace klunortredi::cli
